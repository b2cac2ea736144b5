// The objects of the reference workspace. One class serves every kind: each object answers the
// interfaces of its kind (and IObjectInfo with its name), keeps its children in a hashed index,
// changes its state for real, and records every call it receives in the workspace's call log.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/collections/HostObject.h"
#include "host/collections/NameIndex.h"

enum WorkspaceFacet : unsigned {
    WS_NAMED = 1u << 0,      // INamedCollection of its children
    WS_TABLE = 1u << 1,      // IRunningObjectTableEx (the root)
    WS_STEP = 1u << 2,       // IStep
    WS_IO = 1u << 3,         // IDigitalIO
    WS_RESULT = 1u << 4,     // IResultParameter
    WS_BUTTON = 1u << 5,     // IButton
    WS_TOOLBAR = 1u << 6,    // IToolbarHost, and IButtonCollection over its buttons
    WS_TABS = 1u << 7,       // ITabCollection
    WS_SELECTOR = 1u << 8,   // IUIFolderSelectable: the active tab
    WS_MANAGER = 1u << 9,    // IUIManager and _IUIContainerEvents
    WS_MANAGERS = 1u << 10,  // IUIManagerCollection
    WS_FILES = 1u << 11,     // IFileNameCollection, busy for a while after loading
    WS_SEARCH = 1u << 12,    // IKQSearch
};

// Where the objects of one workspace report what they were asked.
struct WorkspaceLog {
    std::vector<std::string> calls;  // every call, in order, while `keep` is set
    bool keep = true;   // a program that serves for long turns it off: the list would grow without end
    bool echo = false;  // also print each call on standard error
    uint64_t changes = 0;  // calls that may have changed an object (kept or not): a view redraws on a change
    void Record(const std::string& call);
};

class HOST_API CWorkspaceObject final : public ITabCollection, public IStep, public IDigitalIO,
                                        public IResultParameter, public IButton, public IToolbarHost,
                                        public IUIFolderSelectable, public IUIManager, public _IUIContainerEvents,
                                        public IUIManagerCollection, public IFileNameCollection, public IKQSearch,
                                        public IObjectInfo, public IRunningObjectTableEx,
                                        public CHostObject<CWorkspaceObject> {
public:
    CWorkspaceObject(std::wstring name, unsigned facets, WorkspaceLog* log);
    ~CWorkspaceObject();

    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;

    // Children (INamedCollection, ITabCollection).
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;
    HRESULT get_Index(IUnknown* key, int32_t* index) override;
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t, IString*) override { return E_NOTIMPL; }
    HRESULT CollectionLock() override { return S_OK; }
    HRESULT CollectionUnlock() override { return S_OK; }
    HRESULT IsCollectionLocked() override { return 0; }
    HRESULT get_ActiveIndex(int32_t* index) override;
    HRESULT put_ActiveIndex(int32_t index, int32_t) override;
    HRESULT get_SelectedObject(IUnknown** object) override;

    HRESULT SwitchOn() override;
    HRESULT SwitchOff() override;
    int32_t get_State() override { return m_State; }
    HRESULT get_State(int16_t* state) override;
    HRESULT put_State(int32_t state) override;
    HRESULT get_Value(double* value) override;
    HRESULT put_Attribute(int32_t which, int32_t state) override;
    HRESULT get_Attribute(int32_t which, int32_t* value) override;
    HRESULT put_ButtonState(int32_t id, int32_t state) override;
    HRESULT get_ActiveObject(IUnknown** object) override;
    HRESULT Increment() override;
    HRESULT Decrement() override;
    HRESULT Notify(IUIManager* sender, int32_t, int32_t, int32_t, IUnknown* item) override;
    HRESULT Select(IString* text, int32_t, IUnknown** result) override;
    HRESULT SelectDefault() override;
    int32_t IsBusy() override;
    HRESULT Search(IString* text, int32_t, int32_t) override;
    HRESULT GetName(int32_t, tagREFString* name) override;

    // Building a workspace.
    void AddChild(IUnknown* child, const std::wstring& name);
    CWorkspaceObject* Child(const std::wstring& name) const;
    // The children in order, for showing the workspace: their names and objects (a moniker is
    // no workspace object: ChildAt gives null for it).
    int32_t ChildCount() const { return static_cast<int32_t>(m_Children.size()); }
    const std::wstring& ChildName(int32_t index) const { return m_Children[static_cast<size_t>(index)].first; }
    CWorkspaceObject* ChildAt(int32_t index) const;
    void SetParameters(IParametersCreatable* parameters) { m_Parameters.Assign(parameters); }
    void SetBusyFor(int milliseconds);

    const std::wstring& Name() const { return m_Name; }
    unsigned Facets() const { return m_Facets; }

private:
    // What every command that reaches the object reads comes first, next to the interfaces'
    // table pointers and the reference count, so that a path query touches few cache lines.
    unsigned m_Facets;
    SmartPtr<IParametersCreatable> m_Parameters;

public:
    int32_t m_State = 0;  // step and digital input/output state; the active index of tabs and managers

private:
    std::wstring m_Name;
    std::vector<std::pair<std::wstring, SmartPtr<IUnknown>>> m_Children;
    CNameIndex m_Index;

public:
    int32_t m_Id = 0;         // a button's id
    int32_t m_Attribute = 0;  // a button's state attribute (15)
    double m_Value = 0;       // a result's value
    std::wstring m_Selected;  // a manager collection's last selection

private:
    void Record(const std::string& call);
    int32_t IndexOf(std::wstring_view name) const;

    WorkspaceLog* m_Log;
    std::chrono::steady_clock::time_point m_BusyUntil{};
};

// A name or text for the call log and messages: UTF-8, control characters shown as "?".
std::string WorkspaceNarrow(const std::wstring& text);
