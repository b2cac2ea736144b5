#include "Workspace.h"

#include "text/Conversions.h"

HRESULT Node::get_ItemName(int32_t index, IString** name) {
    if (index < 0 || index >= static_cast<int32_t>(m_Children.size())) return E_INVALIDARG;
    *name = ISCreate(m_Children[index]->m_Name.c_str());
    return S_OK;
}

HRESULT Node::Notify(IUIManager*, int32_t a, int32_t b, int32_t c, IUnknown* item) {
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(item, IID_IObjectInfo);
    tagREFString name{0, L""};
    if (info) info->GetName(0, &name);
    Log("Notify(" + std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) + "," +
        Narrow(std::wstring(name.text, name.length)) + ")");
    return S_OK;
}
