#include "host/components/StringTable.h"

#include <map>
#include <string>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/InterfaceMap.h"
#include "host/collections/SuperCollection.h"

namespace {

using Strings = std::map<int, std::wstring>;

std::map<std::wstring, Strings>& Table() {
    static std::map<std::wstring, Strings> table = {
        {L"WKSProtocol", {{1, L"Use Prompt"}, {2, L"Return Style"}, {102, L"Comma separated|INI lines"}}},
    };
    return table;
}

class CStringTable final : public IStringTable, public CHostObject<CStringTable> {
public:
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;

    // The strings of one component as a collection of strings named by their number.
    HRESULT get_ComponentStrings(IString* name, INamedCollection** strings) override {
        if (strings == nullptr) return E_POINTER;
        *strings = nullptr;
        auto found = Table().find(HOSTText(name));
        if (found == Table().end()) return E_FAIL;
        SmartPtr<ISuperCollection> list(HOSTNewCollection());
        if (!list) return E_FAIL;
        for (const auto& [number, text] : found->second) {
            SmartPtr<IString> key(HOSTNewString(std::to_wstring(number).c_str()));
            SmartPtr<IString> value(HOSTNewString(text.c_str()));
            list->Add(key.get(), value.get(), 0, 0);
        }
        *strings = list.Detach();
        return S_OK;
    }
};

constexpr HOSTInterfaceEntry<CStringTable> kInterfaces[] = {
    HOSTAnswer<CStringTable, IStringTable>(IID_IStringTable),
};

HRESULT CStringTable::QueryInterface(const IID& iid, void** object) {
    return HOSTQueryInterface<kInterfaces>(this, iid, object);
}

}  // namespace

void HOSTSetComponentString(const wchar_t* component, int number, const wchar_t* text) {
    if (component == nullptr) return;
    if (text != nullptr) {
        Table()[component][number] = text;
        return;
    }
    // Removing an entry never makes a component known.
    auto found = Table().find(component);
    if (found != Table().end()) found->second.erase(number);
}

HRESULT HOSTCreateStringTable(void*, IID* iid, void** object) { return HOSTCreate<CStringTable>(iid, object); }
