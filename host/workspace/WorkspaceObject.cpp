#include "host/workspace/WorkspaceObject.h"

#include <cstdio>

#include "host/collections/HostString.h"

std::string WorkspaceNarrow(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) out += (c >= 32 && c < 127) ? static_cast<char>(c) : '?';
    return out;
}

void WorkspaceLog::Record(const std::string& call) {
    calls.push_back(call);
    if (echo) std::fprintf(stderr, "[workspace] %s\n", call.c_str());
}

CWorkspaceObject::CWorkspaceObject(std::wstring name, unsigned facets, WorkspaceLog* log)
    : m_Name(std::move(name)), m_Facets(facets), m_Log(log) {}

CWorkspaceObject::~CWorkspaceObject() = default;

void CWorkspaceObject::Record(const std::string& call) {
    if (m_Log) m_Log->Record(WorkspaceNarrow(m_Name) + "." + call);
}

HRESULT CWorkspaceObject::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    const unsigned f = m_Facets;
    if (iid == IID_IUnknown) *object = Primary();
    else if (iid == IID_IObjectInfo) *object = static_cast<IObjectInfo*>(this);
    else if (iid == IID_INamedCollection && (f & (WS_NAMED | WS_TABLE | WS_TABS | WS_TOOLBAR))) *object = Primary();
    else if (iid == IID_IButtonCollection && (f & WS_TOOLBAR)) *object = Primary();
    else if (iid == IID_IRunningObjectTableEx && (f & WS_TABLE)) *object = static_cast<IRunningObjectTableEx*>(this);
    else if (iid == IID_IStep && (f & WS_STEP)) *object = static_cast<IStep*>(this);
    else if (iid == IID_IDigitalIO && (f & WS_IO)) *object = static_cast<IDigitalIO*>(this);
    else if (iid == IID_IResultParameter && (f & WS_RESULT)) *object = static_cast<IResultParameter*>(this);
    else if (iid == IID_IButton && (f & WS_BUTTON)) *object = static_cast<IButton*>(this);
    else if (iid == IID_IToolbarHost && (f & WS_TOOLBAR)) *object = static_cast<IToolbarHost*>(this);
    else if (iid == IID_ITabCollection && (f & WS_TABS)) *object = static_cast<ITabCollection*>(this);
    else if (iid == IID_IUIFolderSelectable && (f & WS_SELECTOR)) *object = static_cast<IUIFolderSelectable*>(this);
    else if (iid == IID_IUIManager && (f & WS_MANAGER)) *object = static_cast<IUIManager*>(this);
    else if (iid == IID__IUIContainerEvents && (f & WS_MANAGER)) *object = static_cast<_IUIContainerEvents*>(this);
    else if (iid == IID_IUIManagerCollection && (f & WS_MANAGERS)) *object = static_cast<IUIManagerCollection*>(this);
    else if (iid == IID_IFileNameCollection && (f & WS_FILES)) *object = static_cast<IFileNameCollection*>(this);
    else if (iid == IID_IKQSearch && (f & WS_SEARCH)) *object = static_cast<IKQSearch*>(this);
    else if ((iid == IID_IParameters || iid == IID_IParametersCreatable) && m_Parameters)
        return m_Parameters->QueryInterface(iid, object);  // the object's own parameter collection
    if (*object == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
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
    if (!name) return E_FAIL;
    auto found = m_Index.find(HOSTText(name.get()));
    if (found == m_Index.end()) return E_FAIL;
    *index = found->second;
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

void CWorkspaceObject::AddChild(IUnknown* child, const std::wstring& name) {
    m_Index.emplace(name, static_cast<int32_t>(m_Children.size()));  // the first of a name wins
    SmartPtr<IUnknown> held;
    held.Assign(child);
    m_Children.emplace_back(name, std::move(held));
}

CWorkspaceObject* CWorkspaceObject::Child(const std::wstring& name) const {
    auto found = m_Index.find(name);
    if (found == m_Index.end()) return nullptr;
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(m_Children[found->second].second.get(), IID_IObjectInfo);
    return info ? static_cast<CWorkspaceObject*>(info.get()) : nullptr;
}
