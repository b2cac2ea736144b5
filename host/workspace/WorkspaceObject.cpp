#include "host/workspace/WorkspaceObject.h"

#include <cstdio>

#include "host/collections/HostString.h"
#include "host/collections/Utf8.h"
#include "host/collections/InterfaceMap.h"

std::string WorkspaceNarrow(const std::wstring& text) {
    std::wstring shown = text;
    for (wchar_t& c : shown)
        if (c < 32 || c == 127) c = L'?';  // a control character would break the log's lines
    return HOSTNarrowUtf8(shown);
}

void WorkspaceLog::Record(const std::string& call) {
    ++changes;
    if (keep) calls.push_back(call);
    if (echo) std::fprintf(stderr, "[workspace] %s\n", call.c_str());
}

CWorkspaceObject::CWorkspaceObject(std::wstring name, unsigned facets, WorkspaceLog* log)
    : m_Facets(facets), m_Name(std::move(name)), m_Log(log) {}

CWorkspaceObject::~CWorkspaceObject() = default;

void CWorkspaceObject::Record(const std::string& call) {
    if (m_Log == nullptr) return;
    if (m_Log->keep || m_Log->echo) m_Log->Record(WorkspaceNarrow(m_Name) + "." + call);
    else ++m_Log->changes;  // the call's text is made only for someone who reads it
}

namespace {

using W = CWorkspaceObject;
// INamedCollection (the children) and the button collection are the primary interface; the first
// row is also the object's IUnknown.
constexpr HOSTInterfaceEntry<W> kInterfaces[] = {
    HOSTAnswer<W, ITabCollection>(IID_INamedCollection, WS_NAMED | WS_TABLE | WS_TABS | WS_TOOLBAR),
    HOSTAnswer<W, IObjectInfo>(IID_IObjectInfo),
    HOSTAnswer<W, IStep>(IID_IStep, WS_STEP),
    HOSTAnswer<W, IDigitalIO>(IID_IDigitalIO, WS_IO),
    HOSTAnswer<W, IResultParameter>(IID_IResultParameter, WS_RESULT),
    HOSTAnswer<W, ITabCollection>(IID_IButtonCollection, WS_TOOLBAR),
    HOSTAnswer<W, IButton>(IID_IButton, WS_BUTTON),
    HOSTAnswer<W, IToolbarHost>(IID_IToolbarHost, WS_TOOLBAR),
    HOSTAnswer<W, IRunningObjectTableEx>(IID_IRunningObjectTableEx, WS_TABLE),
    HOSTAnswer<W, ITabCollection>(IID_ITabCollection, WS_TABS),
    HOSTAnswer<W, IUIFolderSelectable>(IID_IUIFolderSelectable, WS_SELECTOR),
    HOSTAnswer<W, IUIManager>(IID_IUIManager, WS_MANAGER),
    HOSTAnswer<W, _IUIContainerEvents>(IID__IUIContainerEvents, WS_MANAGER),
    HOSTAnswer<W, IUIManagerCollection>(IID_IUIManagerCollection, WS_MANAGERS),
    HOSTAnswer<W, IFileNameCollection>(IID_IFileNameCollection, WS_FILES),
    HOSTAnswer<W, IKQSearch>(IID_IKQSearch, WS_SEARCH),
};
static_assert((WS_SEARCH << 1) < HOST_FACET_ALWAYS, "workspace facets stay clear of the reserved bit");

}  // namespace

HRESULT CWorkspaceObject::QueryInterface(const IID& iid, void** object) {
    // The parameter interfaces belong to the object's own parameter collection, when it has one
    // (the map lists neither).
    if (m_Parameters && (iid == IID_IParameters || iid == IID_IParametersCreatable))
        return m_Parameters->QueryInterface(iid, object);
    return HOSTQueryInterface<kInterfaces>(this, iid, object, m_Facets);
}

HRESULT CWorkspaceObject::get_Count(int32_t* count) {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<int32_t>(m_Children.size());
    return S_OK;
}

HRESULT CWorkspaceObject::get_Item(int32_t index, IUnknown** item) {
    if (item == nullptr) return E_POINTER;
    *item = nullptr;
    if (index < 0 || index >= static_cast<int32_t>(m_Children.size())) return E_INVALIDARG;
    *item = m_Children[index].second.Copy();
    return S_OK;
}

HRESULT CWorkspaceObject::get_Index(IUnknown* key, int32_t* index) {
    if (index == nullptr) return E_POINTER;
    *index = -1;
    SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (!name || name->GetText(&text, &length) < 0 || length < 0 || (length > 0 && text == nullptr)) return E_FAIL;
    const int32_t found = IndexOf(std::wstring_view(text, static_cast<size_t>(length)));
    if (found < 0) return E_FAIL;
    *index = found;
    return S_OK;
}

HRESULT CWorkspaceObject::get_ItemName(int32_t index, IString** name) {
    if (name == nullptr) return E_POINTER;
    *name = nullptr;
    if (index < 0 || index >= static_cast<int32_t>(m_Children.size())) return E_INVALIDARG;
    *name = HOSTNewString(m_Children[index].first.c_str());
    return *name ? S_OK : E_FAIL;
}

HRESULT CWorkspaceObject::get_ActiveIndex(int32_t* index) {
    if (index == nullptr) return E_POINTER;
    *index = m_State;
    return S_OK;
}

HRESULT CWorkspaceObject::put_ActiveIndex(int32_t index, int32_t flag) {
    Record("put_ActiveIndex(" + std::to_string(index) + "," + std::to_string(flag) + ")");
    if (index < 0 || index >= static_cast<int32_t>(m_Children.size())) return E_INVALIDARG;
    m_State = index;
    return S_OK;
}

HRESULT CWorkspaceObject::get_SelectedObject(IUnknown** object) { return get_Item(m_State, object); }

HRESULT CWorkspaceObject::SwitchOn() {
    Record("SwitchOn");
    m_State = 1;
    return S_OK;
}

HRESULT CWorkspaceObject::SwitchOff() {
    Record("SwitchOff");
    m_State = 0;
    return S_OK;
}

HRESULT CWorkspaceObject::get_State(int16_t* state) {
    if (state == nullptr) return E_POINTER;
    *state = static_cast<int16_t>(m_State & 1);
    return S_OK;
}

HRESULT CWorkspaceObject::put_State(int32_t state) {
    Record("put_State(" + std::to_string(state) + ")");
    if (state != 1 && state != 2) return E_INVALIDARG;
    m_State = state == 1 ? 1 : 0;
    return S_OK;
}

HRESULT CWorkspaceObject::get_Value(double* value) {
    if (value == nullptr) return E_POINTER;
    *value = m_Value;
    return S_OK;
}

HRESULT CWorkspaceObject::put_Attribute(int32_t which, int32_t state) {
    Record("put_Attribute(" + std::to_string(which) + "," + std::to_string(state) + ")");
    if (which == 15) m_Attribute = state;
    return S_OK;
}

HRESULT CWorkspaceObject::get_Attribute(int32_t which, int32_t* value) {
    if (value == nullptr) return E_POINTER;
    *value = which == 8 ? m_Id : which == 15 ? m_Attribute : 0;
    return S_OK;
}

HRESULT CWorkspaceObject::put_ButtonState(int32_t id, int32_t state) {
    Record("put_ButtonState(" + std::to_string(id) + "," + std::to_string(state) + ")");
    for (auto& child : m_Children) {
        SmartPtr<IButton> button = QueryAs<IButton>(child.second.get(), IID_IButton);
        int32_t buttonId = 0;
        if (button && button->get_Attribute(8, &buttonId) >= 0 && buttonId == id)
            static_cast<CWorkspaceObject*>(button.get())->m_Attribute = state;
    }
    return S_OK;
}

HRESULT CWorkspaceObject::get_ActiveObject(IUnknown** object) {
    Record("get_ActiveObject");
    return get_Item(m_State, object);
}

HRESULT CWorkspaceObject::Increment() {
    Record("Increment");
    if (m_State + 1 < static_cast<int32_t>(m_Children.size())) ++m_State;
    return S_OK;
}

HRESULT CWorkspaceObject::Decrement() {
    Record("Decrement");
    if (m_State > 0) --m_State;
    return S_OK;
}

HRESULT CWorkspaceObject::Notify(IUIManager*, int32_t a, int32_t b, int32_t c, IUnknown* item) {
    std::string name;
    if (SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(item, IID_IObjectInfo)) {
        tagREFString text{0, nullptr};
        if (info->GetName(0, &text) >= 0 && text.text) name = WorkspaceNarrow(std::wstring(text.text, text.length));
    }
    Record("Notify(" + std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) + "," + name + ")");
    return S_OK;
}

HRESULT CWorkspaceObject::Select(IString* text, int32_t, IUnknown** result) {
    m_Selected = HOSTText(text);
    Record("Select(" + WorkspaceNarrow(m_Selected) + ")");
    if (result) *result = nullptr;
    return S_OK;
}

HRESULT CWorkspaceObject::SelectDefault() {
    Record("SelectDefault");
    m_Selected.clear();
    return S_OK;
}

int32_t CWorkspaceObject::IsBusy() { return std::chrono::steady_clock::now() < m_BusyUntil ? 1 : 0; }

void CWorkspaceObject::SetBusyFor(int milliseconds) {
    m_BusyUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

HRESULT CWorkspaceObject::Search(IString* text, int32_t, int32_t) {
    Record("Search(" + WorkspaceNarrow(HOSTText(text)) + ")");
    return S_OK;
}

HRESULT CWorkspaceObject::GetName(int32_t, tagREFString* name) {
    if (name == nullptr) return E_POINTER;
    *name = tagREFString{static_cast<int32_t>(m_Name.size()), m_Name.c_str()};
    return S_OK;
}

int32_t CWorkspaceObject::IndexOf(std::wstring_view name) const {
    return m_Index.Find(name, static_cast<int32_t>(m_Children.size()),
                        [this](int32_t i) { return std::wstring_view(m_Children[i].first); });
}

void CWorkspaceObject::AddChild(IUnknown* child, const std::wstring& name) {
    SmartPtr<IUnknown> held;
    held.Assign(child);
    m_Children.emplace_back(name, std::move(held));
    const int32_t count = static_cast<int32_t>(m_Children.size());
    m_Index.Add(name, count - 1, count, [this](int32_t i) { return std::wstring_view(m_Children[i].first); });
}

CWorkspaceObject* CWorkspaceObject::Child(const std::wstring& name) const {
    const int32_t found = IndexOf(name);
    return found < 0 ? nullptr : ChildAt(found);
}

CWorkspaceObject* CWorkspaceObject::ChildAt(int32_t index) const {
    // Other objects answer IObjectInfo too (a moniker names its component): only the class tells.
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(m_Children[static_cast<size_t>(index)].second.get(), IID_IObjectInfo);
    return dynamic_cast<CWorkspaceObject*>(info.get());
}
