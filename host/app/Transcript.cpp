#include "host/app/Transcript.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <vector>

#include "host/app/Conversation.h"
#include "host/kit/Files.h"

namespace {

constexpr char kHeader[] = "# wks-host transcript 1";

std::string Escape(std::string_view bytes) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size());
    for (char c : bytes) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else if (u < 0x20 || u >= 0x7F) out += std::string("\\x") + kHex[u >> 4] + kHex[u & 15];
        else out += c;
    }
    return out;
}

bool Unescape(std::string_view text, std::string& out) {
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        if (++i >= text.size()) return false;
        switch (text[i]) {
            case '\\': out += '\\'; break;
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'x': {
                if (i + 2 >= text.size()) return false;
                // Written in capitals; a hand-edited transcript may hold small letters.
                auto digit = [](char c) {
                    return c >= '0' && c <= '9'   ? c - '0'
                           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                           : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                  : -1;
                };
                const int high = digit(text[i + 1]), low = digit(text[i + 2]);
                if (high < 0 || low < 0) return false;
                out += static_cast<char>(high << 4 | low);
                i += 2;
                break;
            }
            default: return false;
        }
    }
    return true;
}

std::string Stamp(bool forFileName) {
    timeval now;
    gettimeofday(&now, nullptr);
    std::tm local;
    localtime_r(&now.tv_sec, &local);
    char text[64];
    std::strftime(text, sizeof text, forFileName ? "%Y%m%dT%H%M%S" : "%Y-%m-%dT%H:%M:%S", &local);
    char zone[8];
    std::strftime(zone, sizeof zone, "%z", &local);
    char milliseconds[24];
    std::snprintf(milliseconds, sizeof milliseconds, ".%03ld", static_cast<long>(now.tv_usec / 1000));
    return std::string(text) + milliseconds + (forFileName ? "" : zone);
}

// The line limit the session had: a count of bytes from 1 to 256 MiB, as --max-line allows.
bool MaxLine(std::string_view text, size_t& limit) {
    size_t value = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || value == 0 || value > (size_t{1} << 28))
        return false;
    limit = value;
    return true;
}

// A decimal integer of 32 bits, sign and all, and nothing else.
bool WholeNumber(std::string_view text, int32_t& value) {
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

const char* FramingName(Framing framing) {
    return framing == Framing::kCounted ? "counted" : framing == Framing::kRaw ? "raw" : "text";
}

}  // namespace

std::unique_ptr<CTranscript> CTranscript::Open(const std::string& folder, const std::string& peer,
                                               const ConversationOptions& options, std::string& error) {
    static std::atomic<unsigned> sequence{0};
    std::string safePeer;
    for (char c : peer) safePeer += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    // Another host recording into the folder may have taken the name in the same millisecond:
    // the next number is tried then.
    const std::string stamp = Stamp(true);
    std::string path;
    FILE* file = nullptr;
    for (int attempt = 0; file == nullptr && attempt < 1000; ++attempt) {
        path = folder + "/" + stamp + "-" + std::to_string(++sequence) + "-" + safePeer + ".wksrec";
        // Readable by the host's own user only: a transcript holds everything its client sent.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0 && (file = ::fdopen(fd, "w")) == nullptr) {
            const int why = errno;
            ::unlink(path.c_str());
            ::close(fd);
            errno = why;
        }
        if (file == nullptr && errno != EEXIST) break;
    }
    if (file == nullptr) return error = path + ": " + std::strerror(errno), nullptr;
    std::fprintf(file, "%s\n# framing %s\n# max-line %zu\n# peer %s\n%s%s", kHeader, FramingName(options.framing),
                 options.maxLine, Escape(peer).c_str(), options.token.empty() ? "" : "# auth\n",
                 options.guard ? "" : "# guard off\n");
    std::fflush(file);
    return std::unique_ptr<CTranscript>(new CTranscript(file, path));
}

// A session that never sent a line (a port scan, standard input at its end) leaves no file.
CTranscript::~CTranscript() {
    std::fclose(m_File);
    if (!m_Events) ::unlink(m_Path.c_str());
}

// A transcript that cannot be written (a full disk) is cut short: say so, once, rather than leave
// a file that reads as a whole session.
void CTranscript::Write(const std::string& line) {
    if (m_Failed) return;
    if (std::fputs(line.c_str(), m_File) >= 0 && std::fflush(m_File) == 0) return;
    m_Failed = true;
    std::fprintf(stderr, "wks-host: %s: cannot write: %s; the transcript ends here\n", m_Path.c_str(), std::strerror(errno));
}

void CTranscript::Message(std::string_view line) {
    m_Events = true;
    Write(Stamp(false) + " > " + Escape(line) + "\n");
}

void CTranscript::Answer(std::string_view bytes) {
    if (bytes.empty()) return;
    m_Events = true;
    Write(Stamp(false) + " < " + Escape(bytes) + "\n");
}

void CTranscript::Refused(std::string_view why) {
    m_Events = true;
    Write("# refused: " + Escape(why) + "\n");
}

void CTranscript::ReturnStyle(int32_t style) { Write("# return-style " + std::to_string(style) + "\n"); }

int ReplayTranscript(const std::string& path, const std::string& name, CProtocolSession& object, std::string& report) {
    std::string text, why;
    if (!ReadWholeFile(path, text, why)) return report = name + ": " + why, 2;
    text.erase(0, text.size() - WithoutByteOrderMark(text).size());
    if (text.rfind("# wks-host transcript ", 0) != 0) return report = name + ": not a wks-host transcript", 2;
    // Every byte a session saw is escaped: a raw carriage return comes from a conversion of the file.
    if (text.find('\r') != std::string::npos)
        return report = name + ": holds a carriage return: a transcript's lines end with LF alone (converted to CR LF?)", 2;
    const std::string firstLine = text.substr(0, text.find('\n'));
    if (firstLine != kHeader) return report = name + ": a transcript of another version (" + firstLine + ")", 2;
    if (text.back() != '\n') return report = name + ": its last line is cut short (the file ends in the middle of it)", 2;
    ConversationOptions options;
    // The reply style to begin with, as the object held it (a state file may hold any number).
    bool styled = false;
    int32_t style = 0;
    struct Step {
        std::string message, recorded;
        size_t line;
        bool refused = false;  // input that never became a message: its answer is kept, not replayed
    };
    std::vector<Step> steps;
    size_t number = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string_view line(text.data() + start, end - start);
        start = end + 1;
        ++number;
        if (line.empty()) continue;
        if (line[0] == '#') {
            // The settings hold for the whole session: one met after its first event was moved there.
            const bool setting = line.rfind("# framing ", 0) == 0 || line == "# auth" || line == "# guard off" ||
                                 line.rfind("# max-line ", 0) == 0 || line.rfind("# return-style ", 0) == 0;
            if (setting && !steps.empty())
                return report = name + ":" + std::to_string(number) + ": a setting after the session began", 2;
            if (line == "# framing counted") options.framing = Framing::kCounted;
            else if (line == "# framing raw") options.framing = Framing::kRaw;
            else if (line == "# framing text") options.framing = Framing::kText;
            else if (line.rfind("# framing ", 0) == 0)
                return report = name + ":" + std::to_string(number) + ": unknown framing", 2;
            else if (line == "# auth") options.token = "*";  // an accepted AUTH line is recorded with "*"
            else if (line == "# guard off") options.guard = false;  // standard input takes any first line
            else if (line.rfind("# max-line ", 0) == 0 && !MaxLine(line.substr(11), options.maxLine))
                return report = name + ":" + std::to_string(number) + ": max-line is not a count of bytes", 2;
            else if (line.rfind("# return-style ", 0) == 0 && !(styled = WholeNumber(line.substr(15), style)))
                return report = name + ":" + std::to_string(number) + ": return-style is not a number", 2;
            else if (line.rfind("# refused: ", 0) == 0) steps.push_back({std::string(), std::string(), number, true});
            continue;  // other remarks (the peer) are for the reader
        }
        const size_t blank = line.find(' ');
        std::string bytes;
        if (blank == std::string_view::npos || blank + 3 > line.size() || line[blank + 2] != ' ' ||
            (line[blank + 1] != '>' && line[blank + 1] != '<') || !Unescape(line.substr(blank + 3), bytes))
            return report = name + ":" + std::to_string(number) + ": not a transcript event", 2;
        if (line[blank + 1] == '>') {
            steps.push_back({bytes, std::string(), number});
        } else if (steps.empty()) {
            return report = name + ":" + std::to_string(number) + ": an answer before any message", 2;
        } else {
            steps.back().recorded += bytes;
        }
    }
    // A line that had to authenticate is recorded as "AUTH *" or "AUTH -" whatever its length: a
    // limit shorter than that must not refuse it here.
    if (!options.token.empty()) options.maxLine = std::max(options.maxLine, std::strlen("AUTH -"));
    SmartPtr<IUIPropInterrogate> settings = QueryAs<IUIPropInterrogate>(object.Manager(), IID_IUIPropInterrogate);
    if (styled && (!settings || settings->Control(kReturnStyleItem, style) < 0))
        return report = name + ": the object's reply style cannot be set", 2;
    CConversation conversation(object, options, nullptr);
    int differences = 0, messages = 0;
    for (const Step& step : steps) {
        if (step.refused) continue;
        ++messages;
        std::string answer;
        conversation.Feed(step.message + "\n", answer);
        if (answer == step.recorded) continue;
        ++differences;
        report += "line " + std::to_string(step.line) + ": " + Escape(step.message) + "\n- " + Escape(step.recorded) +
                  "\n+ " + Escape(answer) + "\n";
    }
    if (differences == 0) return 0;
    report += std::to_string(differences) + " of " + std::to_string(messages) + " messages answered differently\n";
    return 1;
}
