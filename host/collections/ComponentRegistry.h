// The components that the host makes by name, and the objects that describe them.
#pragma once

#include <string>
#include <string_view>

#include "host/collections/HostObject.h"

// The creator registered under `name`, or null.
CREATORFUNCTION HOSTFindComponent(std::wstring_view name);
int32_t HOSTComponentCount();
// The name at `index` (registration order), or empty.
std::wstring HOSTComponentName(int32_t index);
int32_t HOSTComponentIndex(std::wstring_view name);
// Changes whenever a component is registered, so that cached creators can be looked up again.
uint32_t HOSTComponentVersion();

// Describes one component: field 1 its name, field 4 its module. CreateInstance makes a new object
// of the component named in field 1 on every call.
class HOST_API CComponentString final : public IComponentString, public CHostObject<CComponentString> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;
    // Describes `object`: field 1 becomes its IObjectInfo name.
    HRESULT SetObject(IUnknown* object) override;
    HRESULT get_Field(int32_t field, IString** text) override;
    HRESULT CreateInstance(IID* iid, void** object) override;
    HRESULT put_Field(int32_t field, tagREFString text) override;

private:
    static constexpr int32_t kFields = 8;
    std::wstring m_Fields[kFields];
    CREATORFUNCTION m_Creator = nullptr;  // of field 1, as of registry version m_Version
    uint32_t m_Version = 0;
};
