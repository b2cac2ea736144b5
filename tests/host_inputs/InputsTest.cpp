// The host's inputs and collection monikers, made by name through the global component collection.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "host/collections/ComponentList.h"
#include "host/collections/HostString.h"
#include "host/collections/SuperCollection.h"
#include "host/components/Inputs.h"

namespace {

template <class Fn>
Fn Slot(void* itf, int n) {
    return reinterpret_cast<Fn>((*static_cast<void***>(itf))[n]);
}

// An in-memory folder stream: named byte and typed (type 3) entries, named child folders, and
// (when `lists`) the children as an INamedCollection, as a host folder stream offers them.
class MemoryFolder final : public IFolderStream, public INamedCollection, public CHostObject<MemoryFolder> {
public:
    explicit MemoryFolder(bool lists = true) : m_Lists(lists) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown || iid == IID_IFolderStream || iid == IID_IDataStream) *object = static_cast<IFolderStream*>(this);
        if (iid == IID_INamedCollection && m_Lists) *object = static_cast<INamedCollection*>(this);
        if (*object) AddRef();
        return *object ? S_OK : E_NOINTERFACE;
    }
    HRESULT OpenChild(IString* name, int32_t, IFolderStream** child) override {
        int32_t at = -1;
        if (get_Index(name, &at) < 0) {
            at = static_cast<int32_t>(children.size());
            children.emplace_back(HOSTText(name), SmartPtr<MemoryFolder>(new MemoryFolder()));
        }
        *child = children[at].second.Copy();
        return S_OK;
    }
    HRESULT WriteBytes(IString* name, const void* data, int32_t n, int32_t) override {
        entries[HOSTText(name)].assign(static_cast<const char*>(data), n);
        return S_OK;
    }
    HRESULT ReadBytes(IString* name, void* data, int32_t n, int32_t) override {
        auto found = entries.find(HOSTText(name));
        if (found == entries.end() || found->second.size() != static_cast<size_t>(n)) return E_FAIL;
        std::memcpy(data, found->second.data(), n);
        return S_OK;
    }
    HRESULT WriteTyped(IString* name, const void* value, int32_t type) override { return WriteBytes(name, value, type == 3 ? 4 : 0, 0); }
    HRESULT ReadTyped(IString* name, void* value, int32_t type) override { return ReadBytes(name, value, type == 3 ? 4 : 0, 0); }
    HRESULT get_Count(int32_t* count) override { *count = static_cast<int32_t>(children.size()); return S_OK; }
    HRESULT get_Item(int32_t index, IUnknown** item) override { *item = static_cast<IFolderStream*>(children.at(index).second.Copy()); return S_OK; }
    HRESULT get_Index(IUnknown* key, int32_t* index) override {
        SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
        for (*index = 0; *index < static_cast<int32_t>(children.size()); ++*index)
            if (children[*index].first == HOSTText(name.get())) return S_OK;
        *index = -1;
        return E_FAIL;
    }
    // Not used by the inputs.
    HRESULT Seek(int32_t, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT GetBuffer(void**, int32_t*) override { return E_NOTIMPL; }
    HRESULT Write(const void*, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT WriteValue(IString*, IUnknown*) override { return E_NOTIMPL; }
    HRESULT WriteObject(IString*, IUnknown*, int32_t) override { return E_NOTIMPL; }
    HRESULT ReadValue(IString*, IUnknown*) override { return E_NOTIMPL; }
    HRESULT OpenChildAt(IVariant*, int32_t, IFolderStream**) override { return E_NOTIMPL; }
    HRESULT ReadObject(IString*, IUnknown**, int32_t) override { return E_NOTIMPL; }
    HRESULT get_ItemName(int32_t, IString**) override { return E_NOTIMPL; }
    HRESULT Rename(int32_t, IString*) override { return E_NOTIMPL; }
    HRESULT CollectionLock() override { return E_NOTIMPL; }
    HRESULT CollectionUnlock() override { return E_NOTIMPL; }
    HRESULT IsCollectionLocked() override { return E_NOTIMPL; }

    std::map<std::wstring, std::string> entries;
    std::vector<std::pair<std::wstring, SmartPtr<MemoryFolder>>> children;
    bool m_Lists;
};

class HostInputs : public ::testing::Test {
protected:
    void SetUp() override {
        HOSTCreateGlobalComponentCollection(nullptr, &IID_IComponentCollection, m_Global.OutVoid());
        // The host's parameter collection is made by name too. Using one makes the lazy factories,
        // whose component objects live as long as the process: make them before counting.
        SmartPtr<IParametersCreatable> warm = Create<IParametersCreatable>(L"ParametersCreatable", IID_IParametersCreatable);
        ASSERT_TRUE(warm);
        warm->Add(nullptr, nullptr, nullptr, 0);
        warm.Reset();
        m_Live = HOSTLiveObjects();
    }
    void TearDown() override {
        EXPECT_EQ(HOSTLiveObjects(), m_Live);
        m_Global.Reset();
    }
    template <class I>
    SmartPtr<I> Create(const wchar_t* name, IID& iid) {
        SmartPtr<I> made;
        m_Global->CreateComponent(tagREFString{static_cast<int32_t>(wcslen(name)), name}, &iid, made.OutVoid());
        return made;
    }
    SmartPtr<IInputParameter> InputAt(IInputParameters* inputs, int32_t index) {
        SmartPtr<IUnknown> item;
        inputs->get_Item(index, item.Out());
        return QueryAs<IInputParameter>(item.get(), IID_IInputParameter);
    }
    SmartPtr<IComponentCollection> m_Global;
    int32_t m_Live = 0;
};

TEST_F(HostInputs, DeclaredInputsBindObjects) {
    SmartPtr<IInputParameters> inputs = Create<IInputParameters>(L"InputParameters", IID_IInputParameters);
    ASSERT_TRUE(inputs);
    void* itf = inputs.get();
    auto addInput = Slot<HRESULT (*)(void*, IString*, IID, int32_t)>(itf, 12);
    auto putObject = Slot<HRESULT (*)(void*, int32_t, IUnknown*)>(itf, 13);
    auto getObject = Slot<HRESULT (*)(void*, int32_t, IUnknown**)>(itf, 14);
    SmartPtr<IString> rot(HOSTNewString(L"RunningObjectTable")), step(HOSTNewString(L"Step"));
    EXPECT_EQ(addInput(itf, rot.get(), IID_IRunningObjectTableEx, 0), S_OK);
    EXPECT_EQ(addInput(itf, step.get(), IID_IStep, 3), S_OK);

    IUnknown* poisoned = reinterpret_cast<IUnknown*>(0xCAFE);
    EXPECT_EQ(getObject(itf, 0, &poisoned), S_FALSE);
    EXPECT_EQ(poisoned, nullptr);
    SmartPtr<ISuperCollection> table(HOSTNewCollection());
    EXPECT_EQ(putObject(itf, 0, table.get()), S_OK);
    EXPECT_EQ(putObject(itf, 2, table.get()), E_INVALIDARG);
    SmartPtr<IUnknown> bound, value, moniker;
    EXPECT_EQ(getObject(itf, 0, bound.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(bound.get()), static_cast<void*>(table.get()));
    EXPECT_EQ(InputAt(inputs.get(), 0)->get_Value(value.Out()), S_OK) << "a bound input delivers its object";
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(table.get()));

    int32_t index = -1, flags = 0, count = 0;
    EXPECT_EQ(inputs->get_Index(step.get(), &index), S_OK);
    EXPECT_EQ(index, 1);
    SmartPtr<IString> name;
    EXPECT_EQ(inputs->get_ItemName(0, name.Out()), S_OK);
    EXPECT_EQ(HOSTText(name.get()), L"RunningObjectTable");
    SmartPtr<IInputParameter> input = InputAt(inputs.get(), 1);
    IID iid{};
    input->get_InterfaceID(&iid);
    input->get_InputFlags(&flags);
    EXPECT_EQ(iid, IID_IStep);
    EXPECT_EQ(flags, 3);
    EXPECT_EQ(input->get_Value(value.Out()), E_FAIL) << "nothing bound, no moniker";
    EXPECT_EQ(input->get_Moniker(moniker.Out()), E_FAIL);
    EXPECT_FALSE(moniker);
    inputs->get_Count(&count);
    EXPECT_EQ(count, 2);
}

TEST_F(HostInputs, MonikersResolveNamesInACollection) {
    SmartPtr<ISuperCollection> collection(HOSTNewCollection()), target(HOSTNewCollection()), other(HOSTNewCollection());
    SmartPtr<IString> name(HOSTNewString(L"Target"));
    collection->Add(name.get(), target.get(), 0, 0);

    SmartPtr<ICollectionMoniker> moniker = Create<ICollectionMoniker>(L"CollectionMoniker", IID_ICollectionMoniker);
    ASSERT_TRUE(moniker);
    static_cast<CCollectionMoniker*>(moniker.get())->SetName(L"Target");
    SmartPtr<INamedCollection> found;
    EXPECT_EQ(moniker->BindToObject(&IID_INamedCollection, found.OutVoid()), E_FAIL) << "not bound yet";
    EXPECT_EQ(moniker->BindToCollection(collection.get(), 0), S_OK);
    EXPECT_EQ(moniker->BindToObject(&IID_INamedCollection, found.OutVoid()), S_OK);
    EXPECT_EQ(static_cast<void*>(found.get()), static_cast<void*>(target.get()));

    // An input with a moniker delivers the named object; a bound reference takes precedence.
    SmartPtr<IInputParameter> input = Create<IInputParameter>(L"InputParameter", IID_IInputParameter);
    input->put_InterfaceID(IID_INamedCollection);
    input->put_Moniker(moniker.get());
    SmartPtr<IUnknown> value;
    EXPECT_EQ(input->get_Value(value.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(target.get()));
    input->put_Reference(other.get());
    EXPECT_EQ(input->get_Value(value.Out()), S_OK);
    EXPECT_EQ(static_cast<void*>(value.get()), static_cast<void*>(other.get()));
    input->put_Reference(nullptr);

    // Bound again to a collection that lacks the name, the moniker names nothing.
    EXPECT_EQ(moniker->BindToCollection(other.get(), 0), E_FAIL);
    EXPECT_EQ(moniker->BindToObject(&IID_INamedCollection, value.OutVoid()), E_FAIL);
    EXPECT_EQ(input->get_Value(value.Out()), E_FAIL);
    EXPECT_FALSE(value);
}

TEST_F(HostInputs, InputsPersistFlagsAndIdentifiersByName) {
    auto declare = [this](std::vector<std::pair<const wchar_t*, int32_t>> names) {
        SmartPtr<IInputParameters> inputs = Create<IInputParameters>(L"InputParameters", IID_IInputParameters);
        for (const auto& [name, flags] : names) {
            SmartPtr<IString> text(HOSTNewString(name));
            inputs->AddInput(text.get(), flags == 0 ? IID_NULL : IID_IStep, flags);
        }
        return QueryAs<IDataPersist>(inputs.get(), IID_IDataPersist);
    };
    SmartPtr<MemoryFolder> folder(new MemoryFolder());
    SmartPtr<IDataPersist> saved = declare({{L"A", 5}, {L"B", 6}});
    EXPECT_EQ(saved->Save(folder.get(), 0), S_OK);
    ASSERT_EQ(folder->children.size(), 2u);
    EXPECT_EQ(folder->children[0].first + folder->children[1].first, L"AB");
    EXPECT_EQ(folder->children[1].second->entries[L"IID"], std::string(reinterpret_cast<const char*>(IID_IStep.bytes), 16));

    SmartPtr<IDataPersist> loaded = declare({{L"C", 9}, {L"B", 0}});
    SmartPtr<MemoryFolder> unlisted(new MemoryFolder(false));
    EXPECT_EQ(loaded->Load(unlisted.get(), 0), S_OK);
    EXPECT_EQ(loaded->Load(folder.get(), 0), S_OK);
    SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(loaded.get(), IID_IInputParameters);
    const struct { int32_t index, flags; IID iid; } expected[] = {{0, 9, IID_IStep}, {1, 6, IID_IStep}};
    for (const auto& row : expected) {
        int32_t flags = -1;
        IID iid{};
        InputAt(inputs.get(), row.index)->get_InputFlags(&flags);
        InputAt(inputs.get(), row.index)->get_InterfaceID(&iid);
        EXPECT_EQ(flags, row.flags) << row.index;
        EXPECT_EQ(iid, row.iid) << row.index;
    }
    EXPECT_EQ(saved->Save(nullptr, 0), S_OK);
}

}  // namespace
