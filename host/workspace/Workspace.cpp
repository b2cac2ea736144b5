#include "host/workspace/Workspace.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string_view>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/Utf8.h"
#include "host/components/HostParameters.h"
#include "host/components/Inputs.h"
#include "host/kit/Files.h"
#include "module/ValueType.h"

namespace {

// toml++ has checked that the text is UTF-8.
std::wstring Wide(std::string_view utf8) { return HOSTWidenUtf8(utf8); }

// Text from the file as it goes into a one-line message: control bytes written as \xNN.
std::string Shown(std::string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F) out += std::string("\\x") + kHex[u >> 4] + kHex[u & 15];
        else out += c;
    }
    return out;
}

const char* TypeName(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::string: return "a text";
        case toml::node_type::integer: return "an integer";
        case toml::node_type::floating_point: return "a real";
        case toml::node_type::boolean: return "a boolean";
        case toml::node_type::table: return "a table";
        case toml::node_type::array: return "an array";
        default: return "a date or time";
    }
}

// A space of any width, as a name's end must not be.
bool IsBlank(wchar_t c) {
    return c == L' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 ||
           c == 0x202F || c == 0x205F || c == 0x3000;
}

// Why `name` is refused: empty, a control character, one of `forbidden` (`holds` says why), or a
// blank at either end; null if it is none of these.
const char* NameProblem(const std::wstring& name, std::wstring_view forbidden, const char* holds) {
    if (name.empty()) return "it is empty";
    for (wchar_t c : name) {
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return "it holds a control character";
        if (forbidden.find(c) != std::wstring_view::npos) return holds;
    }
    if (IsBlank(name.front()) || IsBlank(name.back())) return "it begins or ends with a blank";
    return nullptr;
}

// Why no command line can spell `name`, or null if one can. A command line is cut into names at
// . : = + - and at line breaks, form feeds and zero characters; each name loses its trailing
// blanks and control characters, and the line its leading ones. Other control characters, and
// leading blanks after a separator, would survive, but nobody types them on purpose: refused too.
const char* Unaddressable(const std::wstring& name) { return NameProblem(name, L".:=+-", "it holds one of . : = + -"); }

// Why a parameter named `name` could not be read back from a query's reply ("name=value" lines),
// or null if it can. Parameters are listed, never addressed: . : + - are fine in their names.
const char* Unlistable(const std::wstring& name) {
    return NameProblem(name, L"=", "it holds =, which ends the name in a reply");
}

// How many leading characters of `name` spell the beginning of "break", in either case. A message
// whose first characters are all of the name up to five characters, or "break", ends the session.
size_t BreakPrefix(const std::wstring& name) {
    static const wchar_t kBreak[] = L"break";
    size_t n = 0;
    while (n < 5 && n < name.size() && (name[n] == kBreak[n] || name[n] == kBreak[n] - L'a' + L'A')) ++n;
    return n;
}

// Keys an object may carry besides `name` and `kind`; each kind takes only the keys it uses.
enum KeyBit : unsigned {
    KEY_STATE = 1u << 0,
    KEY_VALUE = 1u << 1,
    KEY_ID = 1u << 2,
    KEY_SELECTOR = 1u << 3,
    KEY_BUSY = 1u << 4,
    KEY_TARGET = 1u << 5,
    KEY_PARAMETERS = 1u << 6,
    KEY_CHILDREN = 1u << 7,
};

const struct {
    std::string_view name;
    unsigned bit;
} kKeys[] = {
    {"name", 0},           {"kind", 0},           {"state", KEY_STATE},   {"value", KEY_VALUE},
    {"id", KEY_ID},        {"selector", KEY_SELECTOR}, {"busy_ms", KEY_BUSY}, {"target", KEY_TARGET},
    {"parameters", KEY_PARAMETERS}, {"children", KEY_CHILDREN},
};

// Children only where a path can go on: the kinds that answer INamedCollection.
struct Kind {
    std::string_view name;
    unsigned facets;
    unsigned keys;
};
const Kind kKinds[] = {
    {"container", WS_NAMED, KEY_PARAMETERS | KEY_CHILDREN},
    {"step", WS_STEP, KEY_STATE | KEY_PARAMETERS},
    {"io", WS_IO, KEY_STATE | KEY_PARAMETERS},
    {"result", WS_RESULT, KEY_VALUE | KEY_PARAMETERS},
    {"toolbar", WS_TOOLBAR, KEY_PARAMETERS | KEY_CHILDREN},
    {"button", WS_BUTTON, KEY_ID | KEY_PARAMETERS},
    {"tabs", WS_TABS, KEY_STATE | KEY_SELECTOR | KEY_PARAMETERS | KEY_CHILDREN},
    {"manager", WS_MANAGER | WS_NAMED, KEY_STATE | KEY_PARAMETERS | KEY_CHILDREN},
    {"managers", WS_MANAGERS, KEY_PARAMETERS},
    {"moniker", 0, KEY_TARGET},
    {"files", WS_FILES | WS_NAMED, KEY_BUSY | KEY_PARAMETERS | KEY_CHILDREN},
    {"search", WS_SEARCH, KEY_PARAMETERS},
};

// The module waits for a busy file-name collection without a time limit, so a longer busy time
// would stall the session rather than test anything.
constexpr int64_t kMaxBusyMs = 60000;

// The names of one level of the tree, each with the line it was first given on.
struct Siblings {
    std::string parent;  // empty at the top level
    std::map<std::wstring, uint32_t> lines;
};

struct Loader {
    std::string source;
    Workspace& workspace;
    std::string error;
    std::vector<std::string> warnings;
    std::vector<std::pair<std::wstring, std::pair<std::wstring, uint32_t>>> monikers;  // name, target, line
    std::set<std::wstring> monikerNames;

    std::string At(uint32_t line) const { return source + ":" + std::to_string(line) + ": "; }
    bool Fail(const toml::node& node, const std::string& problem) {
        error = At(node.source().begin.line) + problem;
        return false;
    }
    void Warn(const toml::node& node, const std::string& problem) {
        warnings.push_back(At(node.source().begin.line) + problem);
    }
    bool WrongType(const toml::node& node, std::string_view key, const std::string& object, const char* wanted) {
        return Fail(node, "'" + std::string(key) + "' of object '" + object + "' must be " + wanted + ", not " +
                              TypeName(node));
    }

    // The integer at `key`, which must lie in [low, high]; an absent key leaves `out` as it is.
    bool Integer(const toml::table& t, std::string_view key, const std::string& object, int64_t low, int64_t high,
                 int64_t& out) {
        const toml::node* node = t.get(key);
        if (node == nullptr) return true;
        const toml::value<int64_t>* integer = node->as_integer();
        if (integer == nullptr) return WrongType(*node, key, object, "an integer");
        const int64_t value = integer->get();
        if (value < low || value > high)
            return Fail(*node, "'" + std::string(key) + "' of object '" + object + "' must lie in " +
                                   std::to_string(low) + ".." + std::to_string(high) + ", not " + std::to_string(value));
        out = value;
        return true;
    }

    bool Parameters(const toml::node& node, const std::string& object, CWorkspaceObject* target) {
        const toml::table* values = node.as_table();
        if (values == nullptr) return WrongType(node, "parameters", object, "a table");
        SmartPtr<IParametersCreatable> parameters(HOSTNewParameters());
        if (!parameters) return Fail(node, "out of memory");
        for (const auto& [key, value] : *values) {
            const std::wstring wide = Wide(std::string(key.str()));
            if (const char* problem = Unlistable(wide))
                return Fail(value, "parameter '" + Shown(key.str()) + "' of object '" + object + "': " + problem);
            SmartPtr<IString> name(HOSTNewString(wide.c_str()));
            SmartPtr<IVariant> variant;
            HOSTCreateVariant(nullptr, &IID_IVariant, variant.OutVoid());
            if (!name || !variant) return Fail(value, "out of memory");
            int32_t flags = 0;
            if (const toml::value<int64_t>* i = value.as_integer()) {
                if (i->get() < INT32_MIN || i->get() > INT32_MAX)
                    return Fail(value, "parameter '" + Shown(key.str()) + "' of object '" + object + "' is " +
                                           std::to_string(i->get()) + ", beyond a 32-bit integer (write a real)");
                variant->put_Integer(static_cast<int32_t>(i->get())), flags = VALUE_INT32;
            } else if (const toml::value<double>* d = value.as_floating_point()) {
                variant->put_Double(d->get()), flags = VALUE_DOUBLE;
            } else if (const toml::value<bool>* b = value.as_boolean()) {
                variant->put_Integer(b->get() ? 1 : 0), flags = VALUE_INT32;
            } else if (const toml::value<std::string>* s = value.as_string()) {
                SmartPtr<IString> text(HOSTNewString(Wide(s->get()).c_str()));
                if (!text) return Fail(value, "out of memory");
                variant->put_String(text.get());
                flags = VALUE_STRING;
            } else {
                return Fail(value, "parameter '" + Shown(key.str()) + "' must be a number, a boolean or a text");
            }
            if (parameters->Add(name.get(), variant.get(), nullptr, flags) < 0) return Fail(value, "out of memory");
        }
        target->SetParameters(parameters.get());
        return true;
    }

    // The name of object `t`, checked against what commands can spell and against its siblings.
    bool Name(const toml::node& node, const toml::table& t, Siblings& siblings, std::string& name) {
        const toml::node* named = t.get("name");
        if (named == nullptr) return Fail(node, "object without a name");
        if (!named->is_string())
            return Fail(*named, std::string("'name' of an object must be a text, not ") + TypeName(*named));
        name = named->as_string()->get();
        if (name.empty()) return Fail(node, "object without a name");
        const std::wstring wide = Wide(name);
        if (const char* problem = Unaddressable(wide))
            return Fail(*named, "no command can address the name '" + Shown(name) + "': " + problem);
        const uint32_t line = named->source().begin.line;
        auto [first, added] = siblings.lines.emplace(wide, line);
        if (!added)
            return Fail(*named, "duplicate name '" + name + "' " +
                                    (siblings.parent.empty() ? std::string("at the top level")
                                                             : "among the children of '" + siblings.parent + "'") +
                                    " (first on line " + std::to_string(first->second) + ")");
        if (!siblings.parent.empty()) return true;
        // Only the first name of a path can start a message or meet the protocol's own parameters.
        const size_t breakPrefix = BreakPrefix(wide);
        if (breakPrefix == 5)
            Warn(*named, "the name '" + name + "' begins with 'break': a message beginning with it ends the session");
        else if (breakPrefix == wide.size())
            Warn(*named, "the name '" + name + "' is a beginning of 'Break': the message '" + name +
                             "' alone ends the session");
        if (wide == L"Var1" || wide == L"Var2")
            Warn(*named, "the top-level name '" + name +
                             "' is a parameter of the protocol object, which a path beginning with it reaches instead");
        return true;
    }

    bool Object(const toml::node& node, CWorkspaceObject* parent, Siblings& siblings) {
        const toml::table* t = node.as_table();
        if (t == nullptr) return Fail(node, std::string("an object must be a table, not ") + TypeName(node));
        std::string name;
        if (!Name(node, *t, siblings, name)) return false;

        const Kind* kind = &kKinds[0];
        if (const toml::node* kindNode = t->get("kind")) {
            if (!kindNode->is_string()) return WrongType(*kindNode, "kind", name, "a text");
            const std::string& text = kindNode->as_string()->get();
            kind = nullptr;
            for (const Kind& k : kKinds) kind = k.name == text ? &k : kind;
            if (kind == nullptr) return Fail(*kindNode, "unknown kind '" + Shown(text) + "' of object '" + name + "'");
        }
        for (const auto& [key, value] : *t) {
            bool known = false;
            for (const auto& k : kKeys) {
                if (k.name != key.str()) continue;
                known = true;
                if (k.bit != 0 && (kind->keys & k.bit) == 0)
                    return Fail(value, "kind '" + std::string(kind->name) + "' takes no '" + std::string(k.name) +
                                           "' (object '" + name + "')");
            }
            if (!known) return Fail(value, "unknown key '" + Shown(key.str()) + "' in object '" + name + "'");
        }

        const std::wstring wideName = Wide(name);
        if (kind->name == "moniker") {
            if (!siblings.parent.empty()) return Fail(node, "moniker '" + name + "' must be a top-level object");
            const toml::node* target = t->get("target");
            if (target == nullptr) return Fail(node, "moniker '" + name + "' needs a target");
            if (!target->is_string()) return WrongType(*target, "target", name, "a text");
            monikers.push_back({wideName, {Wide(target->as_string()->get()), node.source().begin.line}});
            monikerNames.insert(wideName);
            return true;
        }

        const toml::node* childrenNode = t->get("children");
        const toml::array* children = childrenNode ? childrenNode->as_array() : nullptr;
        if (childrenNode != nullptr && children == nullptr)
            return WrongType(*childrenNode, "children", name, "an array of tables");
        const int64_t lastChild = children != nullptr && !children->empty() ? int64_t(children->size()) - 1 : 0;
        int64_t state = 0, id = 0, busy = -1;
        const bool indexed = (kind->facets & (WS_TABS | WS_MANAGER)) != 0;
        if (!Integer(*t, "state", name, 0, indexed ? lastChild : 1, state) ||
            !Integer(*t, "id", name, INT32_MIN, INT32_MAX, id) || !Integer(*t, "busy_ms", name, 0, kMaxBusyMs, busy))
            return false;
        double value = 0;
        if (const toml::node* v = t->get("value")) {
            if (const toml::value<double>* real = v->as_floating_point()) value = real->get();
            else if (const toml::value<int64_t>* integer = v->as_integer()) value = static_cast<double>(integer->get());
            else return WrongType(*v, "value", name, "a number");
        }
        unsigned facets = kind->facets;
        if (const toml::node* selector = t->get("selector")) {
            if (!selector->is_boolean()) return WrongType(*selector, "selector", name, "a boolean");
            if (selector->as_boolean()->get()) facets |= WS_SELECTOR;
        }

        CWorkspaceObject* object = new (std::nothrow) CWorkspaceObject(wideName, facets, &workspace.log);
        if (object == nullptr) return Fail(node, "out of memory");
        SmartPtr<IUnknown> held(static_cast<ITabCollection*>(object));
        object->m_State = static_cast<int32_t>(state);  // in range: checked above
        object->m_Value = value;
        object->m_Id = static_cast<int32_t>(id);
        if (busy >= 0) object->SetBusyFor(static_cast<int>(busy));
        if (const toml::node* parameters = t->get("parameters"))
            if (!Parameters(*parameters, name, object)) return false;
        if (children != nullptr) {
            Siblings level{name, {}};
            for (const toml::node& child : *children)
                if (!Object(child, object, level)) return false;
        }
        parent->AddChild(held.get(), wideName);
        return true;
    }

    // [registry]: install_path (an absolute directory of at most 255 characters) and
    // [registry.mappings] name = directory, kept in the order of the file.
    bool Registry(const toml::node& node) {
        const toml::table* table = node.as_table();
        if (table == nullptr) return Fail(node, std::string("'registry' must be a table, not ") + TypeName(node));
        for (const auto& [key, value] : *table) {
            if (key.str() == "install_path") {
                const toml::value<std::string>* path = value.as_string();
                if (path == nullptr) return Fail(value, std::string("'install_path' must be a text, not ") + TypeName(value));
                const std::wstring wide = Wide(path->get());
                if (wide.empty() || wide.front() != L'/')
                    return Fail(value, "'install_path' must be an absolute directory, not '" + Shown(path->get()) + "'");
                // The module reads it into a buffer of 256 characters, the terminator included.
                if (wide.size() > 255)
                    return Fail(value, "'install_path' has " + std::to_string(wide.size()) +
                                           " characters, more than the 255 a component can read");
                workspace.registry.installPath = wide;
            } else if (key.str() == "mappings") {
                const toml::table* mappings = value.as_table();
                if (mappings == nullptr)
                    return Fail(value, std::string("'mappings' must be a table, not ") + TypeName(value));
                // toml++ keeps a table's keys sorted; the first matching mapping wins, so the
                // order of the file is restored from where each key stands.
                std::vector<std::pair<toml::source_position, std::pair<std::wstring, std::wstring>>> found;
                for (const auto& [name, folder] : *mappings) {
                    const toml::value<std::string>* text = folder.as_string();
                    if (text == nullptr)
                        return Fail(folder, "mapping '" + Shown(name.str()) + "' must be a text, not " + TypeName(folder));
                    if (name.str().empty() || name.str().find_first_of("[]") != std::string_view::npos)
                        return Fail(folder, "mapping name '" + Shown(name.str()) + "' must be non-empty and without [ ]");
                    if (text->get().empty()) return Fail(folder, "mapping '" + Shown(name.str()) + "' names no directory");
                    // A saved name is matched against whole paths: a relative directory would match none.
                    if (text->get().front() != '/')
                        return Fail(folder, "mapping '" + Shown(name.str()) + "' must be an absolute directory, not '" +
                                                Shown(text->get()) + "'");
                    found.push_back({name.source().begin, {Wide(name.str()), Wide(text->get())}});
                }
                std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
                    return a.first.line != b.first.line ? a.first.line < b.first.line : a.first.column < b.first.column;
                });
                for (auto& entry : found) workspace.registry.mappings.push_back(std::move(entry.second));
            } else {
                return Fail(value, "unknown key '" + Shown(key.str()) + "' in [registry] (expected install_path, mappings)");
            }
        }
        return true;
    }

    bool Document(const toml::table& document, CWorkspaceObject* root) {
        for (const auto& [key, value] : document)
            if (key.str() != "object" && key.str() != "registry")
                return Fail(value, "unknown top-level key '" + Shown(key.str()) + "' (expected [[object]] or [registry])");
        if (const toml::node* registry = document.get("registry"))
            if (!Registry(*registry)) return false;
        const toml::node* objects = document.get("object");
        if (objects == nullptr) return error = At(1) + "no [[object]] tables", false;
        const toml::array* list = objects->as_array();
        if (list == nullptr)
            return Fail(*objects, std::string("'object' must be an array of tables ([[object]]), not ") +
                                      TypeName(*objects));
        if (list->empty()) return Fail(*objects, "no [[object]] tables");
        Siblings top;
        for (const toml::node& node : *list)
            if (!Object(node, root, top)) return false;
        for (const auto& [name, target] : monikers) {
            CWorkspaceObject* bound = root->Child(target.first);
            if (bound == nullptr) {
                error = At(target.second) + "moniker '" + WorkspaceNarrow(name) + "' names " +
                        (monikerNames.count(target.first) ? "another moniker '" : "no top-level object '") +
                        WorkspaceNarrow(target.first) + "'";
                return false;
            }
            SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(target.first.c_str(), static_cast<IObjectInfo*>(bound)));
            if (!moniker) {
                error = At(target.second) + "out of memory";
                return false;
            }
            root->AddChild(moniker.get(), name);
        }
        return true;
    }
};

// The TOML parser follows a dotted key (or a table's name) part by part down the stack, so a key
// of tens of thousands of parts would overflow it: such a key is refused before the parser sees
// it. The scan skips strings and comments; a value has at most two dotted parts (a real).
constexpr size_t kMaxKeyParts = 1000;

// The line of the first key of more than kMaxKeyParts parts, or 0.
size_t LineOfOverlongKey(std::string_view text) {
    size_t line = 1, dots = 0;
    bool afterPart = false;  // the last thing seen, blanks aside, was a key part
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"' || c == '\'') {
            const bool multi = text.substr(i, 3) == std::string(3, c);
            const size_t quotes = multi ? 3 : 1;
            size_t j = i + quotes;
            for (; j < text.size(); ++j) {
                if (text[j] == '\n' && !multi) break;  // an unfinished string: the parser says so
                if (text[j] == '\n') ++line;
                if (c == '"' && text[j] == '\\') {
                    if (j + 1 < text.size() && text[j + 1] == '\n') ++line;
                    ++j;
                } else if (text.compare(j, quotes, text.substr(i, quotes)) == 0) {
                    // Up to two quotes more before the closing three belong to the text.
                    for (int extra = 0; multi && extra < 2 && j + 3 < text.size() && text[j + 3] == c; ++extra) ++j;
                    j += quotes;
                    break;
                }
            }
            i = j - 1;
            afterPart = true;
        } else if (c == '#') {
            while (i + 1 < text.size() && text[i + 1] != '\n') ++i;
        } else if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-') {
            afterPart = true;
        } else if (c == '.' && afterPart) {
            if (++dots >= kMaxKeyParts) return line;
            afterPart = false;
        } else if (c != ' ' && c != '\t') {
            if (c == '\n') ++line;
            dots = 0;
            afterPart = false;
        }
    }
    return 0;
}

}  // namespace

CWorkspaceObject* Workspace::Find(const std::wstring& path) const {
    CWorkspaceObject* at = Root();
    size_t start = 0;
    while (at != nullptr && start <= path.size()) {
        const size_t dot = path.find(L'.', start);
        at = at->Child(path.substr(start, dot == std::wstring::npos ? std::wstring::npos : dot - start));
        if (dot == std::wstring::npos) break;
        start = dot + 1;
    }
    return at;
}

bool WorkspaceLoad(const std::string& text, const std::string& source, Workspace& out, std::string& error,
                   std::vector<std::string>* warnings) {
    CWorkspaceObject* root = new (std::nothrow) CWorkspaceObject(L"Workspace", WS_NAMED | WS_TABLE, &out.log);
    if (root == nullptr) return error = source + ": out of memory", false;
    SmartPtr<IRunningObjectTableEx> table(static_cast<IRunningObjectTableEx*>(root));
    Loader loader{source, out, {}, {}, {}, {}};
    if (const size_t line = LineOfOverlongKey(text))
        return error = source + ":" + std::to_string(line) + ": a key of more than " + std::to_string(kMaxKeyParts) + " parts", false;
    try {
        const toml::table document = toml::parse(text, source);
        if (!loader.Document(document, root)) return error = loader.error, false;
    } catch (const toml::parse_error& problem) {
        error = source + ":" + std::to_string(problem.source().begin.line) + ": " + std::string(problem.description());
        return false;
    }
    out.table = table;
    if (warnings) warnings->insert(warnings->end(), loader.warnings.begin(), loader.warnings.end());
    return true;
}

bool WorkspaceLoadFile(const std::string& path, Workspace& out, std::string& error, std::vector<std::string>* warnings) {
    std::string text, problem;
    if (!ReadWholeFile(path, text, problem)) return error = path + ": " + problem, false;
    return WorkspaceLoad(text, path, out, error, warnings);
}
