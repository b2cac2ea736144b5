#include "host/workspace/Workspace.h"

#include <toml++/toml.h>

#include <map>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/components/HostParameters.h"
#include "host/components/Inputs.h"

namespace {

std::wstring Wide(const std::string& utf8) {
    std::wstring out;
    for (size_t i = 0; i < utf8.size();) {
        const unsigned char c = static_cast<unsigned char>(utf8[i]);
        const int extra = c < 0x80 ? 0 : c < 0xE0 ? 1 : c < 0xF0 ? 2 : 3;
        uint32_t code = extra == 0 ? c : c & (0x3F >> extra);
        for (int k = 1; k <= extra && i + k < utf8.size(); ++k) code = (code << 6) | (utf8[i + k] & 0x3F);
        out += static_cast<wchar_t>(code);
        i += 1 + extra;
    }
    return out;
}

const std::map<std::string, unsigned> kKinds = {
    {"container", WS_NAMED},  {"step", WS_STEP},         {"io", WS_IO},
    {"result", WS_RESULT},    {"toolbar", WS_TOOLBAR},   {"button", WS_BUTTON},
    {"tabs", WS_TABS},        {"manager", WS_MANAGER | WS_NAMED},
    {"managers", WS_MANAGERS}, {"moniker", 0},          {"files", WS_FILES | WS_NAMED},
    {"search", WS_SEARCH},
};

struct Loader {
    std::string source;
    Workspace& workspace;
    std::string error;
    std::vector<std::pair<std::wstring, std::pair<std::wstring, int>>> monikers;  // name, target, line

    bool Fail(const toml::node& node, const std::string& problem) {
        error = source + ":" + std::to_string(node.source().begin.line) + ": " + problem;
        return false;
    }

    bool Parameters(const toml::node& at, const toml::table& values, CWorkspaceObject* object) {
        SmartPtr<IParametersCreatable> parameters(HOSTNewParameters());
        if (!parameters) return Fail(at, "out of memory");
        for (const auto& [key, node] : values) {
            SmartPtr<IString> name(HOSTNewString(Wide(std::string(key.str())).c_str()));
            SmartPtr<IVariant> value;
            HOSTCreateVariant(nullptr, &IID_IVariant, value.OutVoid());
            if (!name || !value) return Fail(node, "out of memory");
            int32_t flags = 0;
            if (auto i = node.value<int64_t>(); i && node.is_integer()) value->put_Integer(static_cast<int32_t>(*i)), flags = 3;
            else if (auto d = node.value<double>(); d && node.is_floating_point()) value->put_Double(*d), flags = 5;
            else if (auto b = node.value<bool>()) value->put_Integer(*b ? 1 : 0), flags = 3;
            else if (auto s = node.value<std::string>()) {
                SmartPtr<IString> text(HOSTNewString(Wide(*s).c_str()));
                if (!text) return Fail(node, "out of memory");
                value->put_String(text.get());
                flags = 6;
            } else {
                return Fail(node, "parameter '" + std::string(key.str()) + "' must be a number, a boolean or a text");
            }
            if (parameters->Add(name.get(), value.get(), nullptr, flags) < 0) return Fail(node, "out of memory");
        }
        object->SetParameters(parameters.get());
        return true;
    }

    bool Object(const toml::node& node, CWorkspaceObject* parent, bool topLevel) {
        const toml::table* t = node.as_table();
        if (t == nullptr) return Fail(node, "an object must be a table");
        const auto name = (*t)["name"].value<std::string>();
        if (!name || name->empty()) return Fail(node, "object without a name");
        const std::string kind = (*t)["kind"].value_or(std::string("container"));
        auto found = kKinds.find(kind);
        if (found == kKinds.end()) return Fail(*(*t).get("kind"), "unknown kind '" + kind + "' of object '" + *name + "'");
        for (const auto& [key, value] : *t) {
            static const char* known[] = {"name", "kind", "state", "value", "id", "selector", "busy_ms", "target",
                                          "parameters", "children"};
            bool ok = false;
            for (const char* k : known) ok = ok || key.str() == k;
            if (!ok) return Fail(value, "unknown key '" + std::string(key.str()) + "' in object '" + *name + "'");
        }
        const std::wstring wideName = Wide(*name);
        if (kind == "moniker") {
            const auto target = (*t)["target"].value<std::string>();
            if (!target || !topLevel) return Fail(node, "a moniker needs a target and must be a top-level object");
            monikers.push_back({wideName, {Wide(*target), static_cast<int>(node.source().begin.line)}});
            return true;
        }
        unsigned facets = found->second;
        if ((*t)["selector"].value_or(false)) facets |= WS_SELECTOR;
        CWorkspaceObject* object = new (std::nothrow) CWorkspaceObject(wideName, facets, &workspace.log);
        if (object == nullptr) return Fail(node, "out of memory");
        SmartPtr<IUnknown> held(static_cast<ITabCollection*>(object));
        object->m_State = static_cast<int32_t>((*t)["state"].value_or(int64_t{0}));
        object->m_Value = (*t)["value"].value_or(0.0);
        object->m_Id = static_cast<int32_t>((*t)["id"].value_or(int64_t{0}));
        if (auto busy = (*t)["busy_ms"].value<int64_t>()) object->SetBusyFor(static_cast<int>(*busy));
        if (const toml::table* parameters = (*t)["parameters"].as_table())
            if (!Parameters(node, *parameters, object)) return false;
        if (const toml::node* children = t->get("children")) {
            const toml::array* list = children->as_array();
            if (list == nullptr) return Fail(*children, "children must be an array of tables");
            for (const toml::node& child : *list)
                if (!Object(child, object, false)) return false;
        }
        parent->AddChild(held.get(), wideName);
        return true;
    }
};

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

bool WorkspaceLoad(const std::string& text, const std::string& source, Workspace& out, std::string& error) {
    CWorkspaceObject* root = new (std::nothrow) CWorkspaceObject(L"Workspace", WS_NAMED | WS_TABLE, &out.log);
    if (root == nullptr) return error = source + ": out of memory", false;
    SmartPtr<IRunningObjectTableEx> table(static_cast<IRunningObjectTableEx*>(root));
    Loader loader{source, out, {}, {}};
    try {
        toml::table document = toml::parse(text, source);
        for (const auto& [key, value] : document) {
            if (key.str() != "object") {
                loader.Fail(value, "unknown top-level key '" + std::string(key.str()) + "' (expected [[object]])");
                error = loader.error;
                return false;
            }
        }
        if (const toml::array* objects = document["object"].as_array()) {
            for (const toml::node& node : *objects) {
                if (!loader.Object(node, root, true)) {
                    error = loader.error;
                    return false;
                }
            }
        }
        for (const auto& [name, target] : loader.monikers) {
            CWorkspaceObject* bound = root->Child(target.first);
            if (bound == nullptr) {
                error = source + ":" + std::to_string(target.second) + ": moniker '" + WorkspaceNarrow(name) +
                        "' names no top-level object '" + WorkspaceNarrow(target.first) + "'";
                return false;
            }
            SmartPtr<ICollectionMoniker> moniker(HOSTNewCollectionMoniker(target.first.c_str(), static_cast<IObjectInfo*>(bound)));
            if (!moniker) return error = source + ":" + std::to_string(target.second) + ": out of memory", false;
            root->AddChild(moniker.get(), name);
        }
    } catch (const toml::parse_error& problem) {
        error = source + ":" + std::to_string(problem.source().begin.line) + ": " + std::string(problem.description());
        return false;
    }
    out.table = table;
    return true;
}
