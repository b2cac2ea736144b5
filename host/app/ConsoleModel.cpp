#include "host/app/ConsoleModel.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/Utf8.h"

using nlohmann::json;

namespace {

constexpr int32_t kTableId = 0x2000000;  // the id that addresses the property table as a whole
// The two pages the console knows how to show.
constexpr const char* kTablePage = "UIPropPages.UIPropInterrogatePropPage";
constexpr const char* kParametersPage = "UIPropPages.UIParametersPropPage";

const char* KindOf(const CWorkspaceObject& object) {
    const unsigned facets = object.Facets();
    static const std::pair<unsigned, const char*> kinds[] = {
        {WS_TABS, "tabs"},   {WS_MANAGER, "manager"}, {WS_FILES, "files"},   {WS_TOOLBAR, "toolbar"},
        {WS_MANAGERS, "managers"}, {WS_STEP, "step"}, {WS_IO, "io"},         {WS_RESULT, "result"},
        {WS_BUTTON, "button"}, {WS_SEARCH, "search"},
    };
    for (const auto& [facet, kind] : kinds)
        if (facets & facet) return kind;
    return "container";
}

std::string Number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

std::string ValueOf(CWorkspaceObject& object, std::string_view kind) {
    if (kind == "step") return object.m_State ? "on" : "off";
    if (kind == "io") return (object.m_State & 1) ? "1" : "0";
    if (kind == "result") return Number(object.m_Value);
    if (kind == "files") return object.IsBusy() ? "busy" : "idle";
    if ((kind == "tabs" || kind == "manager") && object.m_State >= 0 && object.m_State < object.ChildCount())
        return HOSTNarrowUtf8(object.ChildName(object.m_State));
    return "";
}

// The kinds whose value can change while the host runs.
bool Live(std::string_view kind) {
    return kind == "step" || kind == "io" || kind == "result" || kind == "files" || kind == "tabs" || kind == "manager";
}

std::string Quote(const std::string& text) { return json(text).dump(-1, ' ', false, json::error_handler_t::replace); }

std::string Text(IString* text) { return HOSTNarrowUtf8(HOSTText(text)); }

// Calls visit(index, name, item) for every item of `list` (none when it is null).
template <class Visit>
void EachItem(INamedCollection* list, Visit&& visit) {
    int32_t count = 0;
    if (list) list->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IUnknown> item;
        list->get_ItemName(i, name.Out());
        list->get_Item(i, item.Out());
        visit(i, name.get(), item.get());
    }
}

// The captions of the object's items: its strings in the host's string table, by number.
std::map<int, std::string> Captions(IUnknown* object) {
    std::map<int, std::string> captions;
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    tagREFString name{0, nullptr};
    if (!info || info->GetName(0, &name) < 0 || name.text == nullptr) return captions;
    SmartPtr<IStringTable> table;
    SmartPtr<INamedCollection> strings;
    SmartPtr<IString> component(HOSTNewString(name.text, name.length));
    if (HOSTCreateStringTable(nullptr, const_cast<IID*>(&IID_IStringTable), table.OutVoid()) < 0 ||
        table->get_ComponentStrings(component.get(), strings.Out()) < 0 || !strings)
        return captions;
    EachItem(strings.get(), [&](int32_t, IString* number, IUnknown* item) {
        captions[std::atoi(Text(number).c_str())] = Text(QueryAs<IString>(item, IID_IString).get());
    });
    return captions;
}

json Choices(IUnknown* enumeration) {
    json choices = json::array();
    SmartPtr<INamedCollection> list = QueryAs<INamedCollection>(enumeration, IID_INamedCollection);
    EachItem(list.get(), [&](int32_t i, IString* name, IUnknown* item) {
        SmartPtr<IVariant> value = QueryAs<IVariant>(item, IID_IVariant);
        choices.push_back({{"text", Text(name)}, {"value", value ? value->get_Integer() : i}});
    });
    return choices;
}

// An item's value as the page shows it: an integer (types 1 to 3), a real (4: single-precision bits
// through Inquire; 5: a double through InquireEx), a text (6, through InquireEx); null otherwise.
json ItemValue(IUIPropInterrogateEx* extended, int32_t id, int type, int32_t bits) {
    if (type >= 1 && type <= 3) return bits;
    if (type == 4) {
        float real;
        std::memcpy(&real, &bits, sizeof real);
        return std::isfinite(real) ? json(real) : json();
    }
    SmartPtr<IUnknown> held;
    if (!extended || (type != 5 && type != 6) || extended->InquireEx(id, held.Out()) < 0) return json();
    if (type == 5) {
        SmartPtr<IVariant> real = QueryAs<IVariant>(held.get(), IID_IVariant);
        return real && std::isfinite(real->get_Double()) ? json(real->get_Double()) : json();
    }
    return Text(QueryAs<IString>(held.get(), IID_IString).get());
}

json Items(IUnknown* object) {
    json items = json::array();
    SmartPtr<IUIPropInterrogate> table = QueryAs<IUIPropInterrogate>(object, IID_IUIPropInterrogate);
    int32_t count = 0, first = 0, last = -1;
    if (!table || table->Inquire(kTableId, &count) < 0 || count <= 0 || table->ParameterRange(kTableId, &first, &last) < 0)
        return items;
    const std::map<int, std::string> captions = Captions(object);
    SmartPtr<IUIPropInterrogateEx> extended = QueryAs<IUIPropInterrogateEx>(table.get(), IID_IUIPropInterrogateEx);
    for (int64_t id = first; id <= last; ++id) {
        int32_t bits = 0;
        const HRESULT flags = table->Inquire(static_cast<int32_t>(id), &bits);
        if (flags == E_INVALIDARG) continue;  // no such item
        const int type = flags < 0 ? 0 : flags & 0xF;
        // Inquire refuses strings; their flags come with InquireEx.
        const HRESULT extendedFlags = type == 0 && extended ? extended->InquireEx(static_cast<int32_t>(id), nullptr) : flags;
        const int kindOfValue = extendedFlags < 0 ? 0 : extendedFlags & 0xF;
        const json value = ItemValue(extended.get(), static_cast<int32_t>(id), kindOfValue, bits);
        if (value.is_null()) continue;  // nothing the page can show and edit
        const auto caption = captions.find(static_cast<int>(id));
        json item = {{"id", id}, {"caption", caption != captions.end() ? caption->second : "Item " + std::to_string(id)},
                     {"value", value}};
        int32_t minimum = 0, maximum = 0;
        SmartPtr<IUnknown> enumeration;
        if (kindOfValue == 4 || kindOfValue == 5) {
            item["kind"] = "real";
        } else if (kindOfValue == 6) {
            item["kind"] = "text";
        } else if (table->ParameterRange(static_cast<int32_t>(id), &minimum, &maximum) >= 0) {
            item["kind"] = "range";
            item["min"] = minimum;
            item["max"] = maximum;
        } else if (table->ParameterEnumeration(static_cast<int32_t>(id), enumeration.Out()) >= 0) {
            item["kind"] = "enumeration";
            item["choices"] = Choices(enumeration.get());
            // A value that is none of the choices (a state file may hold one) is shown as its
            // number, as one more choice that the item does not offer.
            bool listed = false;
            for (const json& choice : item["choices"]) listed = listed || choice["value"] == value;
            if (!listed) item["choices"].push_back({{"text", value.dump()}, {"value", value}, {"listed", false}});
        } else {
            continue;
        }
        items.push_back(std::move(item));
    }
    return items;
}

// The names of the property pages the object asks for (IUIPropertyPageSpecify).
std::vector<std::string> PageNames(IUnknown* object) {
    std::vector<std::string> names;
    SmartPtr<IUIPropertyPageSpecify> specify = QueryAs<IUIPropertyPageSpecify>(object, IID_IUIPropertyPageSpecify);
    SmartPtr<INamedCollection> pages;
    if (!specify || specify->GetPages(0, pages.Out(), nullptr) < 0 || !pages) return names;
    int32_t count = 0;
    pages->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> page;
        pages->get_Item(i, page.Out());
        names.push_back(Text(QueryAs<IString>(page.get(), IID_IString).get()));
    }
    return names;
}

const char* TypeName(int32_t flags) {
    switch (flags & 0xF) {
        case 1: case 2: case 3: return "integer";
        case 4: case 5: return "real";
        case 6: return "text";
        case 7: return "object";
        default: return "none";
    }
}

std::string ValueText(IVariant* value) {
    if (value == nullptr) return "";
    if (value->IsString()) {
        SmartPtr<IString> text;
        value->get_String(text.Out());
        return Text(text.get());
    }
    if (value->get_NumberType() == 1) return std::to_string(value->get_Integer());
    if (value->get_NumberType() != 0) return Number(value->get_Double());
    if (value->IsObject()) {
        SmartPtr<IUnknown> object;
        value->get_Object(object.Out());
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object.get(), IID_IObjectInfo);
        tagREFString name{0, nullptr};
        if (info && info->GetName(0, &name) >= 0 && name.text) return HOSTNarrowUtf8(std::wstring_view(name.text, name.length));
    }
    return "";
}

json Parameters(IUnknown* object) {
    json parameters = json::array();
    SmartPtr<IParameters> list = QueryAs<IParameters>(object, IID_IParameters);
    int32_t count = 0;
    if (list) list->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IString> name;
        SmartPtr<IVariant> value;
        int32_t flags = 0;
        list->get_ItemName(i, name.Out());
        list->get_ItemVariant(i, value.Out());
        list->get_ItemFlags(i, &flags);
        parameters.push_back({{"index", i}, {"name", Text(name.get())}, {"type", TypeName(flags)}, {"value", ValueText(value.get())}});
    }
    return parameters;
}

}  // namespace

CConsoleTree::CConsoleTree(const Workspace& workspace) {
    // Depth first, a parent before its children: the walk keeps the parents still to be finished.
    struct Level {
        const CWorkspaceObject* parent;
        std::string prefix;  // the parent's path and its dot
        int32_t next = 0;
    };
    std::vector<Level> levels;
    if (const CWorkspaceObject* root = workspace.Root()) levels.push_back({root, "", 0});
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.parent->ChildCount()) {
            levels.pop_back();
            continue;
        }
        const int32_t i = level.next++;
        const std::string name = HOSTNarrowUtf8(level.parent->ChildName(i));
        std::string path = level.prefix + name;
        CWorkspaceObject* object = level.parent->ChildAt(i);
        const std::string kind = object ? KindOf(*object) : "moniker";
        Entry entry;
        entry.path = Quote(path);
        entry.prefix = "{\"depth\":" + std::to_string(levels.size() - 1) + ",\"kind\":\"" + kind +
                       "\",\"name\":" + Quote(name) + ",\"path\":" + entry.path + ",\"value\":";
        entry.value = "\"\"";
        m_Objects.push_back(std::move(entry));
        if (object && Live(kind)) {
            Sample sample{object, m_Objects.size() - 1,
                          kind == "result" ? Sample::kNumber : kind == "files" ? Sample::kBusy : Sample::kState};
            m_Objects.back().value.clear();  // so that the first look takes it, whatever it is
            Take(sample);
            m_Busy = m_Busy || sample.busy;
            m_Live.push_back(sample);
        }
        if (object) levels.push_back({object, path + ".", 0});
    }
}

bool CConsoleTree::Take(Sample& sample) {
    CWorkspaceObject& object = *sample.object;
    std::string& shown = m_Objects[sample.entry].value;
    // The value is made from one of these alone: when it is as last time, so is the value.
    switch (sample.kind) {
        case Sample::kState:
            if (object.m_State == sample.state && !shown.empty()) return false;
            sample.state = object.m_State;
            break;
        case Sample::kNumber:
            if (std::memcmp(&object.m_Value, &sample.number, sizeof sample.number) == 0 && !shown.empty()) return false;
            sample.number = object.m_Value;
            break;
        case Sample::kBusy: {
            const bool busy = object.IsBusy() != 0;
            if (busy == sample.busy && !shown.empty()) return false;
            sample.busy = busy;
            break;
        }
    }
    const char* kind = sample.kind == Sample::kNumber ? "result"
                       : sample.kind == Sample::kBusy ? "files"
                                                      : KindOf(object);
    std::string value = Quote(ValueOf(object, kind));
    if (value == shown) return false;
    shown = std::move(value);
    return true;
}

std::string CConsoleTree::Whole() const {
    std::string out = "{\"objects\":[";
    for (const Entry& entry : m_Objects) {
        if (&entry != &m_Objects.front()) out += ',';
        out += entry.prefix;
        out += entry.value;
        out += '}';
    }
    return out + "],\"type\":\"tree\"}";
}

std::string CConsoleTree::Changes() {
    std::string out;
    bool busy = false;
    for (Sample& sample : m_Live) {
        const bool changed = Take(sample);
        busy = busy || sample.busy;
        if (!changed) continue;
        const Entry& entry = m_Objects[sample.entry];
        out += out.empty() ? "{\"type\":\"values\",\"objects\":[" : ",";
        out += "{\"path\":" + entry.path + ",\"value\":" + entry.value + "}";
    }
    m_Busy = busy;
    return out.empty() ? out : out + "]}";
}

std::string ConsolePages(IUnknown* object) {
    const std::vector<std::string> pages = PageNames(object);
    auto asks = [&](const char* page) { return std::find(pages.begin(), pages.end(), page) != pages.end(); };
    return json{{"type", "pages"},
                {"pages", pages},
                {"items", asks(kTablePage) ? Items(object) : json::array()},
                {"parameters", asks(kParametersPage) ? Parameters(object) : json::array()}}
        .dump(-1, ' ', false, json::error_handler_t::replace);
}

bool ConsoleControl(IUnknown* object, int64_t id, const json& value, std::string& error) {
    const std::string name = "setting " + std::to_string(id);
    for (const json& item : Items(object)) {
        if (item["id"] != id) continue;
        SmartPtr<IUIPropInterrogateEx> table = QueryAs<IUIPropInterrogateEx>(object, IID_IUIPropInterrogateEx);
        const std::string kind = item["kind"];
        if (kind == "text") {
            std::wstring wide;
            if (!value.is_string() || !HOSTDecodeUtf8(value.get<std::string>(), wide)) return error = name + " takes a text", false;
            SmartPtr<IString> text(HOSTNewString(wide.c_str(), static_cast<int32_t>(wide.size())));
            if (!table || table->ControlEx(id, text.get()) < 0) return error = name + " refused the value", false;
            return true;
        }
        if (!value.is_number() || !std::isfinite(value.get<double>())) return error = name + " takes a number", false;
        if (kind == "real") {
            const int32_t type = table ? table->Inquire(id, nullptr) & 0xF : 0;
            SmartPtr<IVariant> real;
            if (type == 5 && HOSTCreateVariant(nullptr, const_cast<IID*>(&IID_IVariant), real.OutVoid()) >= 0) {
                real->put_Double(value.get<double>());
                if (table->ControlEx(id, real.get()) >= 0) return true;
            } else if (type == 4) {
                const float single = static_cast<float>(value.get<double>());
                int32_t bits;
                std::memcpy(&bits, &single, sizeof bits);
                if (std::isfinite(single) && table->Control(id, bits) >= 0) return true;
            }
            return error = name + " refused the value", false;
        }
        // An integer within the range, or one of the choices.
        const double number = value.get<double>();
        bool allowed = number == std::floor(number);
        if (kind == "range") {
            allowed = allowed && number >= item["min"].get<double>() && number <= item["max"].get<double>();
        } else {
            bool offered = false;
            for (const json& choice : item["choices"])
                offered |= choice["value"].get<double>() == number && choice.value("listed", true);
            allowed = allowed && offered;
        }
        if (!allowed) return error = name + " does not take " + value.dump(), false;
        SmartPtr<IUIPropInterrogate> plain = QueryAs<IUIPropInterrogate>(object, IID_IUIPropInterrogate);
        if (!plain || plain->Control(id, static_cast<int32_t>(number)) < 0) return error = name + " refused the value", false;
        return true;
    }
    return error = "no " + name, false;
}

bool ConsoleSetParameter(IUnknown* object, int64_t index, const std::string& text, std::string& error) {
    SmartPtr<IParameters> list = QueryAs<IParameters>(object, IID_IParameters);
    int32_t count = 0, flags = 0;
    if (list) list->get_Count(&count);
    if (index < 0 || index >= count) return error = "no parameter " + std::to_string(index), false;
    list->get_ItemFlags(index, &flags);
    const std::string type = TypeName(flags);
    SmartPtr<IVariant> value;
    if (HOSTCreateVariant(nullptr, const_cast<IID*>(&IID_IVariant), value.OutVoid()) < 0) return error = "out of memory", false;
    char* end = nullptr;
    errno = 0;
    if (type == "integer") {
        const long long number = std::strtoll(text.c_str(), &end, 10);
        if (text.empty() || *end != '\0' || errno != 0 || number < INT32_MIN || number > INT32_MAX)
            return error = "'" + text + "' is not a 32-bit integer", false;
        value->put_Integer(static_cast<int32_t>(number));
    } else if (type == "real") {
        const double number = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0' || !std::isfinite(number)) return error = "'" + text + "' is not a number", false;
        value->put_Double(number);
    } else if (type == "text") {
        std::wstring wide;
        if (!HOSTDecodeUtf8(text, wide)) return error = "the text is not UTF-8", false;
        SmartPtr<IString> string(HOSTNewString(wide.c_str(), static_cast<int32_t>(wide.size())));
        value->put_String(string.get());
    } else {
        return error = "parameter " + std::to_string(index) + " is not edited here", false;
    }
    list->put_Item(index, value.get());
    return true;
}
