// A small recording workspace for the protocol tests: one node class that answers whichever
// object interfaces it is given and logs every call it receives.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "support/Fakes.h"

enum Facet : unsigned {
    kNamed = 1, kStep = 2, kIO = 4, kResult = 8, kButton = 16, kToolbar = 32, kTabs = 64, kSelector = 128,
    kManager = 256, kManagers = 512, kFiles = 1024, kSearch = 2048, kTable = 4096, kButtons = 8192,
};

class Node final : public ITabCollection, public IStep, public IDigitalIO, public IResultParameter,
                   public IButton, public IToolbarHost, public IUIFolderSelectable,
                   public IUIManager, public _IUIContainerEvents, public IUIManagerCollection,
                   public IFileNameCollection, public IKQSearch, public IObjectInfo, public IRunningObjectTableEx {
public:
    Node(std::wstring name, unsigned facets, std::vector<std::string>* log)
        : m_Name(std::move(name)), m_Facets(facets), m_Log(log) { ++FakeLive(); }
    ~Node() { --FakeLive(); }

    Node* Add(const std::wstring& name, unsigned facets) {
        Node* child = new Node(name, facets, m_Log);
        m_Children.emplace_back(child);
        return child;
    }

    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown) *object = static_cast<ITabCollection*>(this);
        else if (iid == IID_IObjectInfo) *object = static_cast<IObjectInfo*>(this);
        else if (iid == IID_INamedCollection && (m_Facets & (kNamed | kTabs | kTable | kButtons))) *object = static_cast<ITabCollection*>(this);
        else if (iid == IID_IButtonCollection && (m_Facets & kButtons)) *object = static_cast<IToolbarHost*>(this);
        else if (iid == IID_IStep && (m_Facets & kStep)) *object = static_cast<IStep*>(this);
        else if (iid == IID_IDigitalIO && (m_Facets & kIO)) *object = static_cast<IDigitalIO*>(this);
        else if (iid == IID_IResultParameter && (m_Facets & kResult)) *object = static_cast<IResultParameter*>(this);
        else if (iid == IID_IButton && (m_Facets & kButton)) *object = static_cast<IButton*>(this);
        else if (iid == IID_IToolbarHost && (m_Facets & kToolbar)) *object = static_cast<IToolbarHost*>(this);
        else if (iid == IID_ITabCollection && (m_Facets & kTabs)) *object = static_cast<ITabCollection*>(this);
        else if (iid == IID_IUIFolderSelectable && (m_Facets & kSelector)) *object = static_cast<IUIFolderSelectable*>(this);
        else if (iid == IID_IUIManager && (m_Facets & kManager)) *object = static_cast<IUIManager*>(this);
        else if (iid == IID__IUIContainerEvents && (m_Facets & kManager)) *object = static_cast<_IUIContainerEvents*>(this);
        else if (iid == IID_IUIManagerCollection && (m_Facets & kManagers)) *object = static_cast<IUIManagerCollection*>(this);
        else if (iid == IID_IFileNameCollection && (m_Facets & kFiles)) *object = static_cast<IFileNameCollection*>(this);
        else if (iid == IID_IKQSearch && (m_Facets & kSearch)) *object = static_cast<IKQSearch*>(this);
        else if (iid == IID_IRunningObjectTableEx && (m_Facets & kTable)) *object = static_cast<IRunningObjectTableEx*>(this);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return ++m_Refs; }
    int32_t Release() override {
        const int32_t left = --m_Refs;
        if (left == 0) delete this;
        return left;
    }

    // INamedCollection / ITabCollection
    HRESULT get_Count(int32_t* count) override { *count = static_cast<int32_t>(m_Children.size()); return S_OK; }
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        if (index < 0 || index >= static_cast<int32_t>(m_Children.size())) return E_INVALIDARG;
        *item = static_cast<ITabCollection*>(m_Children[index].Copy());
        return S_OK;
    }
    HRESULT get_Index(IUnknown* key, int32_t* index) override {
        SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
        const std::wstring text = name ? TextOf(name.get()) : L"";
        for (size_t i = 0; i < m_Children.size(); ++i)
            if (m_Children[i]->m_Name == text) return *index = static_cast<int32_t>(i), S_OK;
        *index = -1;
        return E_FAIL;
    }
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t, IString*) override { return E_NOTIMPL; }
    HRESULT CollectionLock() override { return S_OK; }
    HRESULT CollectionUnlock() override { return S_OK; }
    HRESULT IsCollectionLocked() override { return 0; }
    HRESULT get_ActiveIndex(int32_t* index) override { *index = active; return S_OK; }
    HRESULT put_ActiveIndex(int32_t index, int32_t flag) override {
        Log("put_ActiveIndex(" + std::to_string(index) + "," + std::to_string(flag) + ")");
        active = index;
        return S_OK;
    }
    // IStep (get_State shares its name with IDigitalIO's; both are implemented below)
    HRESULT SwitchOn() override { Log("SwitchOn"); state = 1; return S_OK; }
    HRESULT SwitchOff() override { Log("SwitchOff"); state = 0; return S_OK; }
    int32_t get_State() override { return state; }
    HRESULT get_State(int16_t* s) override { *s = static_cast<int16_t>(state); return S_OK; }
    HRESULT put_State(int32_t s) override { Log("put_State(" + std::to_string(s) + ")"); state = s == 1; return S_OK; }
    HRESULT get_Value(double* v) override { *v = value; return S_OK; }
    HRESULT put_Attribute(int32_t which, int32_t s) override {
        Log("put_Attribute(" + std::to_string(which) + "," + std::to_string(s) + ")");
        return S_OK;
    }
    HRESULT get_Attribute(int32_t which, int32_t* v) override { *v = which == 8 ? id : 0; return S_OK; }
    HRESULT put_ButtonState(int32_t i, int32_t s) override {
        Log("put_ButtonState(" + std::to_string(i) + "," + std::to_string(s) + ")");
        return S_OK;
    }
    HRESULT get_SelectedObject(IUnknown** object) override {
        *object = selected ? static_cast<ITabCollection*>(selected.Copy()) : nullptr;
        return selected ? S_OK : E_FAIL;
    }
    HRESULT get_ActiveObject(IUnknown** object) override { Log("get_ActiveObject"); *object = nullptr; return E_FAIL; }
    HRESULT Increment() override { Log("Increment"); return S_OK; }
    HRESULT Decrement() override { Log("Decrement"); return S_OK; }
    HRESULT Notify(IUIManager*, int32_t a, int32_t b, int32_t c, IUnknown* item) override;
    HRESULT Select(IString* text, int32_t, IUnknown** result) override {
        Log("Select(" + Narrow(TextOf(text)) + ")");
        *result = nullptr;
        return S_OK;
    }
    HRESULT SelectDefault() override { Log("SelectDefault"); return S_OK; }
    int32_t IsBusy() override { return busy > 0 ? busy-- : 0; }
    HRESULT Search(IString* text, int32_t, int32_t) override { Log("Search(" + Narrow(TextOf(text)) + ")"); return S_OK; }
    HRESULT GetName(int32_t, tagREFString* name) override {
        *name = tagREFString{static_cast<int32_t>(m_Name.size()), m_Name.c_str()};
        return S_OK;
    }

    static std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }
    void Log(const std::string& call) { m_Log->push_back(Narrow(m_Name) + "." + call); }

    std::wstring m_Name;
    unsigned m_Facets;
    std::vector<std::string>* m_Log;
    std::vector<SmartPtr<Node>> m_Children;
    SmartPtr<Node> selected;
    int32_t m_Refs = 1, state = 0, id = 0, active = 0, busy = 0;
    double value = 0;
};
