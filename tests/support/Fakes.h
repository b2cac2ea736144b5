// Small fakes shared by the suites: reference-counted objects that count how many of them are
// alive, and streams that record what they are asked.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "module/SmartPtr.h"
#include "module/interfaces/All.h"

// Reads slot `n` of an interface's table, as a host calling by position does.
template <class Fn>
Fn Slot(void* itf, int n) {
    return reinterpret_cast<Fn>((*static_cast<void***>(itf))[n]);
}

inline std::wstring TextOf(IString* string) {
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (string == nullptr || string->GetText(&text, &length) < 0 || text == nullptr) return L"<null>";
    return std::wstring(text, length);
}

// Host objects alive now, as the host that the module loaded from ./CollectionsEx.so counts them;
// -1 when that module is not loaded.
inline int32_t LiveHostObjects() {
    void* host = dlopen("./CollectionsEx.so", RTLD_NOW | RTLD_NOLOAD);
    auto live = host ? reinterpret_cast<int32_t (*)()>(dlsym(host, "HOSTLiveObjects")) : nullptr;
    if (host) dlclose(host);  // drops only the reference NOLOAD took
    return live ? live() : -1;
}

inline int& FakeLive() {
    static int live = 0;
    return live;
}

// The IUnknown part of a fake answering `Primary` (and IUnknown).
template <class Primary>
class Fake : public Primary {
public:
    Fake() { ++FakeLive(); }
    virtual ~Fake() { --FakeLive(); }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid == IID_IUnknown || Answers(iid)) {
            *object = static_cast<Primary*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    int32_t AddRef() override { return ++m_Refs; }
    int32_t Release() override {
        const int32_t left = --m_Refs;
        if (left == 0) delete this;
        return left;
    }
    virtual bool Answers(const IID& iid) = 0;
    int32_t m_Refs = 1;
};

// A named collection with nothing in it; a fake that is one overrides what it uses.
template <class Primary = INamedCollection>
class FakeNamed : public Fake<Primary> {
public:
    HRESULT get_Count(int32_t* count) override { return *count = 0, S_OK; }
    HRESULT get_Item(int32_t, IUnknown**) override { return E_FAIL; }
    HRESULT get_Index(IUnknown*, int32_t*) override { return E_FAIL; }
    HRESULT get_ItemName(int32_t, IString**) override { return E_FAIL; }
    HRESULT Rename(int32_t, IString*) override { return E_NOTIMPL; }
    HRESULT CollectionLock() override { return S_OK; }
    HRESULT CollectionUnlock() override { return S_OK; }
    HRESULT IsCollectionLocked() override { return 0; }
};

// An input that delivers `value` (when set) and keeps a moniker.
class FakeInput final : public Fake<IInputParameter> {
public:
    bool Answers(const IID& iid) override { return ++asked > 0 && iid == IID_IInputParameter; }
    HRESULT get_Value(IUnknown** out) override {
        if (!value) return E_FAIL;
        *out = value.Copy();
        return S_OK;
    }
    HRESULT get_Moniker(IUnknown** out) override { *out = moniker.Copy(); return moniker ? S_OK : E_FAIL; }
    HRESULT put_Moniker(IUnknown* object) override { moniker.Assign(object); return S_OK; }
    // Not used by the code under test.
    HRESULT get_InterfaceID(IID* iid) override { *iid = IID_NULL; return S_OK; }
    HRESULT put_InterfaceID(IID) override { return S_OK; }
    HRESULT get_Reference(IUnknown** out) override { *out = nullptr; return S_FALSE; }
    HRESULT put_Reference(IUnknown*) override { return S_OK; }
    HRESULT get_InputFlags(int32_t* flags) override { *flags = 0; return S_OK; }
    HRESULT put_InputFlags(int32_t) override { return S_OK; }
    HRESULT get_BindFlags(int32_t* flags) override { *flags = 0; return S_OK; }

    SmartPtr<IUnknown> value, moniker;
    int asked = 0;  // questions for any interface but IUnknown
};

// A moniker that records the collections it was bound to; binding fails when `names` is false.
class FakeMoniker final : public Fake<ICollectionMoniker> {
public:
    explicit FakeMoniker(bool names) : m_Names(names) {}
    bool Answers(const IID& iid) override { return iid == IID_ICollectionMoniker; }
    HRESULT BindToCollection(INamedCollection*, int32_t) override {
        ++binds;
        return m_Names ? S_OK : E_FAIL;
    }
    HRESULT BindToObject(IID*, void** object) override { *object = nullptr; return E_FAIL; }
    int binds = 0;
    bool m_Names;
};

// A folder stream in memory: named byte entries (a typed value of type 3 is 4 bytes), values,
// objects and child folders and, when it `lists`, all of them in the order written as an
// INamedCollection (a child as its folder, a value as its variant), as a host's folder stream
// offers them. ReadObject hands out the object written under the name, else `readObject`, and
// keeps in `handed` what the place held when it was called.
class FakeFolder final : public Fake<IFolderStream>, public INamedCollection {
public:
    explicit FakeFolder(bool lists = false) : m_Lists(lists) {}
    bool Answers(const IID& iid) override { return iid == IID_IFolderStream || iid == IID_IDataStream; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid != IID_INamedCollection || !m_Lists) return Fake::QueryInterface(iid, object);
        *object = static_cast<INamedCollection*>(this);
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return Fake::AddRef(); }
    int32_t Release() override { return Fake::Release(); }
    HRESULT OpenChild(IString* name, int32_t, IFolderStream** child) override {
        children.emplace_back(TextOf(name), SmartPtr<FakeFolder>(new FakeFolder(m_Lists)));
        Record(name, 'c');
        *child = children.back().second.Copy();
        return S_OK;
    }
    HRESULT WriteBytes(IString* name, const void* data, int32_t n, int32_t) override {
        entries[TextOf(name)].assign(static_cast<const char*>(data), n);
        Record(name, 'b');
        return S_OK;
    }
    HRESULT ReadBytes(IString* name, void* data, int32_t n, int32_t) override {
        read.push_back(TextOf(name));
        auto found = entries.find(TextOf(name));
        if (found == entries.end() || found->second.size() != static_cast<size_t>(n)) return E_FAIL;
        std::memcpy(data, found->second.data(), n);
        return S_OK;
    }
    HRESULT WriteTyped(IString* name, const void* value, int32_t type) override { return WriteBytes(name, value, type == 3 ? 4 : 0, 0); }
    HRESULT ReadTyped(IString* name, void* value, int32_t type) override { return ReadBytes(name, value, type == 3 ? 4 : 0, 0); }
    // Records the object the place held; with `readObject`, releases it and puts that one there.
    HRESULT ReadObject(IString* name, IUnknown** object, int32_t) override {
        handed.Assign(*object);
        refsWhenRead = m_Refs;
        auto found = objects.find(TextOf(name));
        IUnknown* given = found != objects.end() ? found->second.get() : readObject.get();
        if (given == nullptr) return E_FAIL;
        if (*object) (*object)->Release();
        given->AddRef();
        *object = given;
        return S_OK;
    }
    HRESULT WriteValue(IString* name, IUnknown* value) override {
        values[TextOf(name)].Assign(value);  // a variant or a string, kept as given
        Record(name, 'v');
        return S_OK;
    }
    // Into a variant, or, for a text value, into a string.
    HRESULT ReadValue(IString* name, IUnknown* into) override {
        auto found = values.find(TextOf(name));
        if (found == values.end() || !found->second) return E_FAIL;
        if (SmartPtr<IVariant> target = QueryAs<IVariant>(into, IID_IVariant)) return target->put_Object(found->second.get());
        SmartPtr<IString> target = QueryAs<IString>(into, IID_IString), text = QueryAs<IString>(found->second.get(), IID_IString);
        if (SmartPtr<IVariant> stored = QueryAs<IVariant>(found->second.get(), IID_IVariant)) stored->get_String(text.Out());
        if (!target || !text) return E_FAIL;
        const std::wstring copy = TextOf(text.get());
        return target->SetText(static_cast<int32_t>(copy.size()), copy.c_str());
    }
    // The child folder at a number, in the order written.
    HRESULT OpenChildAt(IVariant* key, int32_t, IFolderStream** child) override {
        const int32_t index = key ? key->get_Integer() : -1;
        if (index < 0 || index >= static_cast<int32_t>(children.size())) return E_FAIL;
        *child = children[index].second.Copy();
        return S_OK;
    }
    HRESULT WriteObject(IString* name, IUnknown* object, int32_t) override {
        objects[TextOf(name)].Assign(object);
        Record(name, 'o');
        return S_OK;
    }
    HRESULT get_Count(int32_t* count) override { *count = static_cast<int32_t>(order.size()); return S_OK; }
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        const auto& [name, kind] = order.at(index);
        *item = nullptr;
        if (kind == 'v') *item = values[name].Copy();  // a value entry is no folder
        for (const auto& [childName, child] : children)
            if (kind == 'c' && childName == name) *item = static_cast<IFolderStream*>(child.Copy());
        return S_OK;
    }
    HRESULT get_Index(IUnknown* key, int32_t* index) override {
        SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
        for (*index = 0; *index < static_cast<int32_t>(order.size()); ++*index)
            if (order[*index].first == TextOf(name.get())) return S_OK;
        *index = -1;
        return E_FAIL;
    }
    HRESULT get_ItemName(int32_t index, IString** name) override {
        *name = names.at(index).Copy();
        return S_OK;
    }
    void Record(IString* name, char kind) {
        order.emplace_back(TextOf(name), kind);
        names.emplace_back().Assign(name);
    }
    // Not used by the code under test.
    HRESULT Seek(int32_t, int32_t, int32_t) override { return S_OK; }
    HRESULT GetBuffer(void**, int32_t*) override { return E_NOTIMPL; }
    HRESULT Write(const void*, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT Rename(int32_t, IString*) override { return E_NOTIMPL; }
    HRESULT CollectionLock() override { return E_NOTIMPL; }
    HRESULT CollectionUnlock() override { return E_NOTIMPL; }
    HRESULT IsCollectionLocked() override { return E_NOTIMPL; }

    int32_t refsWhenRead = 0;
    std::vector<std::wstring> read;  // the names of ReadBytes, in order
    std::map<std::wstring, std::string> entries;
    std::vector<std::pair<std::wstring, SmartPtr<FakeFolder>>> children;
    std::map<std::wstring, SmartPtr<IUnknown>> values;
    std::map<std::wstring, SmartPtr<IUnknown>> objects;
    std::vector<std::pair<std::wstring, char>> order;  // every entry written: b(ytes), v(alue), o(bject), c(hild)
    std::vector<SmartPtr<IString>> names;              // the name strings of `order`
    SmartPtr<IUnknown> readObject, handed;
    bool m_Lists;
};

// An XML stream in memory: a tree of elements shared by a stream and the child streams opened
// from it. Writing adds below the current element; reading walks the children of the stream's
// own element with a cursor. An object element is named after the object's IObjectInfo name
// ("Object" without one); ReadObject and ReadContainedObject make an object with `factories`
// under its element's name and Load it from a stream over that element. As an IString a stream
// is its element's text, or its children's markup when it has children; Parse builds a tree from
// such markup, and a stream whose root holds raw text hands that text out unparsed.
class FakeXML final : public Fake<IXMLStream>, public IString {
public:
    struct Node {
        std::wstring name, text;
        std::vector<std::unique_ptr<Node>> children;
    };
    struct Tree {
        Node root;
        std::map<std::wstring, std::function<IUnknown*()>> factories;
        std::wstring shut;  // elements of this name are listed but cannot be opened
    };
    FakeXML() : FakeXML(std::make_shared<Tree>(), nullptr) {}
    FakeXML(std::shared_ptr<Tree> tree, Node* node) : m_Tree(std::move(tree)), m_Node(node ? node : &m_Tree->root) {
        m_Open.push_back(m_Node);
    }
    // "<a>1</a><b><c>2</c></b>": elements with text or with child elements; nothing else.
    static SmartPtr<FakeXML> Parse(const std::wstring& markup) {
        SmartPtr<FakeXML> xml(new FakeXML());
        size_t at = 0;
        ParseChildren(markup, at, xml->m_Tree->root);
        return xml;
    }
    std::wstring Markup() const { return Render(*m_Node); }
    int asked = 0;  // questions, answered or not
    void Shut(std::wstring name) { m_Tree->shut = std::move(name); }

    bool Answers(const IID& iid) override { return iid == IID_IXMLStream || iid == IID_IDataStream; }
    HRESULT QueryInterface(const IID& iid, void** object) override {
        ++asked;
        if (iid != IID_IString) return Fake::QueryInterface(iid, object);
        *object = static_cast<IString*>(this);
        AddRef();
        return S_OK;
    }
    int32_t AddRef() override { return Fake::AddRef(); }
    int32_t Release() override { return Fake::Release(); }
    HRESULT GetText(wchar_t** text, int32_t* length) override {
        m_Text = m_Node->children.empty() ? m_Node->text : Render(*m_Node);
        *text = m_Text.data();
        *length = static_cast<int32_t>(m_Text.size());
        return S_OK;
    }

    HRESULT BeginElement(IString* name, int32_t, int32_t) override {
        m_Open.push_back(Add(TextOf(name), L""));
        return S_OK;
    }
    HRESULT BeginObjectElement(IUnknown* object, int32_t, int32_t) override {
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
        tagREFString name{6, L"Object"};
        if (info) info->GetName(0, &name);
        m_Open.push_back(Add(std::wstring(name.text, name.length), L""));
        return S_OK;
    }
    HRESULT WriteElement(IString* name, int32_t, IString* text, int32_t) override {
        Add(TextOf(name), text ? TextOf(text) : L"");
        return S_OK;
    }
    HRESULT EndElement() override {
        if (m_Open.size() > 1) m_Open.pop_back();
        return S_OK;
    }
    HRESULT NextElement(tagREFString* name) override {
        if (m_Cursor + 1 >= m_Node->children.size()) return E_FAIL;
        const std::wstring& next = m_Node->children[++m_Cursor]->name;
        *name = tagREFString{static_cast<int32_t>(next.size()), next.c_str()};
        return S_OK;
    }
    // The element at the cursor when it has this name, else the first child of that name.
    HRESULT OpenElement(int32_t length, const wchar_t* name, tagREFString* text, IXMLStream** child, int32_t) override {
        Node* found = Child(std::wstring(name, length));
        if (found == nullptr || found->name == m_Tree->shut) return E_FAIL;
        *text = tagREFString{static_cast<int32_t>(found->text.size()), found->text.c_str()};
        *child = new FakeXML(m_Tree, found);
        return S_OK;
    }
    HRESULT ReadContainedObject(IUnknown** object) override {
        *object = nullptr;
        if (m_Node->children.empty()) return E_FAIL;
        const std::wstring& name = m_Node->children.front()->name;
        return ReadObject(static_cast<int32_t>(name.size()), name.c_str(), object);
    }
    HRESULT ReadObject(int32_t length, const wchar_t* name, IUnknown** object) override {
        *object = nullptr;
        Node* found = Child(std::wstring(name, length));
        auto factory = found ? m_Tree->factories.find(found->name) : m_Tree->factories.end();
        if (factory == m_Tree->factories.end()) return E_FAIL;
        SmartPtr<IUnknown> made(factory->second());
        SmartPtr<FakeXML> inside(new FakeXML(m_Tree, found));
        if (SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(made.get(), IID_IDataPersist)) persist->Load(inside.get(), 0);
        *object = made.Detach();
        return S_OK;
    }
    // Not used by the code under test.
    HRESULT Seek(int32_t, int32_t, int32_t) override { return S_OK; }
    HRESULT GetBuffer(void**, int32_t*) override { return E_NOTIMPL; }
    HRESULT Write(const void*, int32_t, int32_t) override { return E_NOTIMPL; }
    HRESULT SetText(int32_t, const wchar_t*) override { return E_NOTIMPL; }
    HRESULT AppendText(int32_t, const wchar_t*) override { return E_NOTIMPL; }

    std::shared_ptr<Tree> m_Tree;
    Node* m_Node;                // the element this stream reads
    std::vector<Node*> m_Open;   // the elements being written, innermost last
    size_t m_Cursor = SIZE_MAX;  // the child NextElement gave last
    std::wstring m_Text;

private:
    Node* Add(const std::wstring& name, const std::wstring& text) {
        auto& children = m_Open.back()->children;
        children.push_back(std::make_unique<Node>(Node{name, text, {}}));
        return children.back().get();
    }
    Node* Child(const std::wstring& name) {
        auto& children = m_Node->children;
        if (m_Cursor < children.size() && children[m_Cursor]->name == name) return children[m_Cursor].get();
        for (auto& child : children)
            if (child->name == name) return child.get();
        return nullptr;
    }
    static std::wstring Render(const Node& node) {
        std::wstring out;
        for (const auto& child : node.children)
            out += L"<" + child->name + L">" + (child->children.empty() ? child->text : Render(*child)) + L"</" + child->name + L">";
        return out;
    }
    static void ParseChildren(const std::wstring& markup, size_t& at, Node& parent) {
        while (at < markup.size() && markup.compare(at, 2, L"</") != 0) {
            const size_t close = markup.find(L'>', at);
            auto child = std::make_unique<Node>();
            child->name = markup.substr(at + 1, close - at - 1);
            at = close + 1;
            if (markup.compare(at, 1, L"<") == 0 && markup.compare(at, 2, L"</") != 0) {
                ParseChildren(markup, at, *child);
            } else {
                const size_t end = markup.find(L'<', at);
                child->text = markup.substr(at, end - at);
                at = end;
            }
            at = markup.find(L'>', at) + 1;  // past the closing tag
            parent.children.push_back(std::move(child));
        }
    }
};

