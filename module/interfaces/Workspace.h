// The host objects that command lines address.
#pragma once

#include "module/interfaces/Collections.h"

class IRunningObjectTableEx : public IUnknown {};  // answers INamedCollection: the root of the names

class IStep : public IUnknown {
public:
    virtual HRESULT SwitchOn() = 0;   // slot 3
    virtual HRESULT SwitchOff() = 0;  // slot 4
    virtual int32_t get_State() = 0;  // slot 5
};

class IDigitalIO : public IUnknown {
public:
    virtual HRESULT get_State(int16_t* state) = 0;  // slot 3: bit 0 is the state
    virtual HRESULT put_State(int32_t state) = 0;   // slot 4: 1 on, 2 off
};

class IResultParameter : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    WKS_PLACEHOLDER(6)
    WKS_PLACEHOLDER(7)
    WKS_PLACEHOLDER(8)
    WKS_PLACEHOLDER(9)
    WKS_PLACEHOLDER(10)
    WKS_PLACEHOLDER(11)
    WKS_PLACEHOLDER(12)
    WKS_PLACEHOLDER(13)
    virtual HRESULT get_Value(double* value) = 0;  // slot 14
};

class IResultsView : public IUnknown {};

class IButton : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    WKS_PLACEHOLDER(6)
    WKS_PLACEHOLDER(7)
    WKS_PLACEHOLDER(8)
    WKS_PLACEHOLDER(9)
    WKS_PLACEHOLDER(10)
    WKS_PLACEHOLDER(11)
    WKS_PLACEHOLDER(12)
    WKS_PLACEHOLDER(13)
    WKS_PLACEHOLDER(14)
    WKS_PLACEHOLDER(15)
    WKS_PLACEHOLDER(16)
    WKS_PLACEHOLDER(17)
    WKS_PLACEHOLDER(18)
    WKS_PLACEHOLDER(19)
    WKS_PLACEHOLDER(20)
    WKS_PLACEHOLDER(21)
    virtual HRESULT put_Attribute(int32_t which, int32_t state) = 0;   // slot 22, which = 15
    virtual HRESULT get_Attribute(int32_t which, int32_t* value) = 0;  // slot 23, which = 8: the id
};

class IButtonCollection : public IUnknown {};  // answers INamedCollection: its buttons

class IToolbarHost : public IUnknown {
public:
    virtual HRESULT put_ButtonState(int32_t id, int32_t state) = 0;  // slot 3
};

class ITabCollection : public INamedCollection {
public:
    WKS_PLACEHOLDER(11)
    virtual HRESULT get_ActiveIndex(int32_t* index) = 0;           // slot 12
    virtual HRESULT put_ActiveIndex(int32_t index, int32_t) = 0;   // slot 13, the module passes 1
};

class IUIFolderSelectable : public IUnknown {
public:
    virtual HRESULT get_SelectedObject(IUnknown** object) = 0;  // slot 3
};

class IUIManager : public IUnknown {
public:
    virtual HRESULT get_ActiveObject(IUnknown** object) = 0;  // slot 3
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    WKS_PLACEHOLDER(6)
    WKS_PLACEHOLDER(7)
    WKS_PLACEHOLDER(8)
    WKS_PLACEHOLDER(9)
    WKS_PLACEHOLDER(10)
    WKS_PLACEHOLDER(11)
    virtual HRESULT Increment() = 0;  // slot 12
    virtual HRESULT Decrement() = 0;  // slot 13
};

class IUIManagerCollection : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    virtual HRESULT Select(IString* text, int32_t, IUnknown** result) = 0;  // slot 6
    virtual HRESULT SelectDefault() = 0;                                   // slot 7
};

class _IUIContainerEvents : public IUnknown {
public:
    // slot 3; the module passes (manager, 1, -1, -1, target)
    virtual HRESULT Notify(IUIManager* sender, int32_t, int32_t, int32_t, IUnknown* item) = 0;
};

class IFileNameCollection : public IUnknown {
public:
    WKS_PLACEHOLDER(3)
    WKS_PLACEHOLDER(4)
    WKS_PLACEHOLDER(5)
    virtual int32_t IsBusy() = 0;  // slot 6, non-zero while busy
};

class IKQSearch : public IUnknown {
public:
    virtual HRESULT Search(IString* text, int32_t, int32_t) = 0;  // slot 3
};
