#include "bench/Rig.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>

Rig::Rig(int objects, int children) {
    CWorkspaceObject* root = new CWorkspaceObject(L"Workspace", WS_NAMED | WS_TABLE, &m_Workspace.log);
    m_Workspace.table.Attach(static_cast<IRunningObjectTableEx*>(root));
    auto add = [](CWorkspaceObject* parent, CWorkspaceObject* child) {
        parent->AddChild(static_cast<IStep*>(child), child->Name());
        child->HostRelease();
    };
    for (int i = 0; i < objects; ++i) {
        CWorkspaceObject* object = new CWorkspaceObject(L"Obj" + std::to_wstring(i), WS_NAMED, &m_Workspace.log);
        add(object, new CWorkspaceObject(L"Sub", WS_IO, &m_Workspace.log));
        add(root, object);
    }
    if (children > 0) {
        CWorkspaceObject* big = new CWorkspaceObject(L"Big", WS_NAMED, &m_Workspace.log);
        for (int i = 0; i < children; ++i) {
            CWorkspaceObject* result = new CWorkspaceObject(L"R" + std::to_wstring(i), WS_RESULT, &m_Workspace.log);
            result->m_Value = i + 0.5;
            add(big, result);
        }
        add(root, big);
    }
    if (!m_Host.Load("./WKSProtocol.so", m_Error)) return;
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(m_Workspace.table.get(), IID_INamedCollection);
    const HRESULT opened = m_Session.Open(m_Host, names.get());
    if (opened != S_OK) {
        char text[80];
        std::snprintf(text, sizeof text, "the protocol object could not be opened (0x%08x)", static_cast<unsigned>(opened));
        m_Error = text;
    }
}

std::vector<std::string> Rig::Replies(const std::string& message, int64_t* lines) {
    std::vector<std::string> replies;
    int32_t more = 0;
    m_Session.Exchange(
        message.data(), message.size(),
        [&](const unsigned char* reply, int32_t length) { replies.emplace_back(reinterpret_cast<const char*>(reply), length); },
        &more);
    if (lines != nullptr) *lines = more + 1;
    return replies;
}

namespace {

// The start of `text` for an error message, its line ends written out.
std::string Shown(const std::string& text) {
    std::string shown;
    for (char c : text.substr(0, 24)) shown += c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    return text.size() > 24 ? shown + "..." : shown;
}

}  // namespace

bool Ready(benchmark::State& state, const Rig& rig) {
    if (rig.Error().empty()) return true;
    state.SkipWithError(rig.Error().c_str());
    return false;
}

bool Expect(benchmark::State& state, const Tally& tally, int64_t lines, int64_t matches, const std::string& expected) {
    if (tally.lines == lines && tally.matches == matches && tally.others == 0 && tally.failures == 0) return true;
    const std::string error = "expected " + std::to_string(lines) + " lines and " + std::to_string(matches) +
                              " replies \"" + Shown(expected) + "\"; the exchange reported " +
                              std::to_string(tally.lines) + " lines, " + std::to_string(tally.matches) +
                              " such replies, " + std::to_string(tally.others) + " other replies and " +
                              std::to_string(tally.failures) + " refused messages";
    state.SkipWithError(error.c_str());
    return false;
}

bool ExpectReplies(benchmark::State& state, Rig& rig, const std::string& message,
                   const std::vector<std::string>& replies) {
    const std::vector<std::string> got = rig.Replies(message);
    if (got == replies) return true;
    std::string error = "\"" + Shown(message) + "\" replied";
    for (const std::string& reply : got) error += " \"" + Shown(reply) + "\"";
    if (got.empty()) error += " nothing";
    error += ", expected";
    for (const std::string& reply : replies) error += " \"" + Shown(reply) + "\"";
    if (replies.empty()) error += " nothing";
    state.SkipWithError(error.c_str());
    return false;
}

std::vector<int> Shuffled(int objects) {
    std::vector<int> order(static_cast<size_t>(objects));
    for (int i = 0; i < objects; ++i) order[static_cast<size_t>(i)] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(20240611));
    return order;
}

long ResidentKiB() {
    malloc_trim(0);
    long size = 0, resident = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr) return -1;
    if (std::fscanf(statm, "%ld %ld", &size, &resident) != 2) resident = -1;
    std::fclose(statm);
    return resident < 0 ? -1 : resident * (sysconf(_SC_PAGESIZE) / 1024);
}
