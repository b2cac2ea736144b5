// "FolderStream": a tree of named entries held in memory, and its text form (a versioned JSON file).
//
// Entry kinds, each written and read by its own pair of operations:
//   bytes    WriteBytes / ReadBytes: a block of bytes
//   typed    WriteTyped / ReadTyped: a number of value type 1 to 5 (ValueType.h), in the machine's
//            byte order: 1 byte, 2 bytes, 4 bytes (type 3, and type 4 single precision), 8 bytes
//   value    WriteValue / ReadValue: the text of a string, or a variant's value (an integer, a real,
//            a text, or nothing)
//   object   WriteObject / ReadObject: a component name and a child folder the object saved into
//   folder   OpenChild / OpenChildAt: a child folder
// Entries keep the order in which their names were first written; writing a name again replaces
// that entry in place, whatever its kind was. Names are compared exactly. A read finds only an
// entry of its own kind: an absent name gives E_FAIL, an entry of another kind, another type or
// another size gives E_INVALIDARG; neither writes to the caller's buffer or object.
// Folders nest at most HOST_FOLDER_MAX_DEPTH levels below the folder made by HOSTNewFolderStream or
// by name; opening or writing an object deeper fails.
//
// Text form (UTF-8 JSON, written with two-space indentation and a final line break):
//   {
//     "format": "wks-folder",
//     "version": 1,
//     "entries": [
//       {"name": "UsePrompt", "typed": 3, "value": 1},
//       {"name": "Flags", "bytes": "0a000000"},
//       {"name": "Title", "string": "Gain"},
//       {"name": "Count", "integer": 5},
//       {"name": "Ratio", "real": 1.5},
//       {"name": "Unset", "empty": true},
//       {"name": "Parameters", "folder": [ ...entries... ]},
//       {"name": "Inputs", "object": "InputParameters", "folder": [ ...entries... ]}
//     ]
//   }
// - Every entry has "name" and exactly the keys of one kind above, in any order. "bytes" is
//   lowercase hexadecimal, two digits a byte. A typed value of types 1 to 3 is an integer within the
//   type's range; of types 4 and 5, and a "real", a number or one of the texts "nan", "-nan", "inf",
//   "-inf" (a NaN keeps only its sign). "integer" is a 32-bit signed integer.
// - Names and texts are UTF-8 and hold any Unicode scalar value (U+0000 included, as an escape).
//   A wide text that holds a surrogate or a value beyond U+10FFFF cannot be written as text.
// - Reading is strict and all or nothing: another format name or version, a key that is unknown,
//   missing, repeated or of the wrong type, a repeated name in one folder, a number out of range,
//   invalid UTF-8, folders nested deeper than HOST_FOLDER_MAX_DEPTH, or anything after the JSON
//   value are refused with one line that says where: "line 3, column 7: ..." for the JSON syntax,
//   "entry Parameters/Var1: ..." for an entry (entries without a usable name by their position,
//   "#2", counted from 0), else the problem alone.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/collections/HostObject.h"

constexpr int32_t HOST_FOLDER_MAX_DEPTH = 64;

class HOST_API CFolderStream final : public IFolderStream, public INamedCollection, public CHostObject<CFolderStream> {
public:
    explicit CFolderStream(int32_t depth = 0) : m_Depth(depth) {}
    HOST_FORWARD_REFCOUNT
    HRESULT QueryInterface(const IID& iid, void** object) override;

    // IDataStream: a folder has no byte content of its own.
    HRESULT Seek(int32_t, int32_t, int32_t) override { return S_OK; }
    HRESULT GetBuffer(void** data, int32_t* bytes) override;  // E_NOTIMPL, null and 0
    HRESULT Write(const void*, int32_t, int32_t) override { return E_NOTIMPL; }

    // The child folder of that name; an entry of another kind under the name is replaced by a new,
    // empty folder. E_FAIL when the child would nest too deep.
    HRESULT OpenChild(IString* name, int32_t, IFolderStream** child) override;
    HRESULT WriteBytes(IString* name, const void* data, int32_t byteCount, int32_t) override;
    // A string's text, or a variant's integer, real, text or emptiness; a variant holding any
    // other object is refused (E_INVALIDARG) and nothing is written.
    HRESULT WriteValue(IString* name, IUnknown* value) override;
    // Stores the object's IObjectInfo name and a new child folder that the object's IDataPersist
    // Save(child, 0) writes into (Save's result is not judged: some objects report a failure after
    // a complete save). An object without both interfaces or with an empty name: E_INVALIDARG,
    // nothing written.
    HRESULT WriteObject(IString* name, IUnknown* object, int32_t) override;
    // Types 1 to 5 only; another type is refused (E_INVALIDARG).
    HRESULT WriteTyped(IString* name, const void* value, int32_t type) override;
    // The block must have exactly `byteCount` bytes.
    HRESULT ReadBytes(IString* name, void* data, int32_t byteCount, int32_t) override;
    // Into a variant (put_Integer, put_Double, put_String of a new string, or put_Object(null) for
    // an empty value), or into a string (SetText; an empty value gives an empty text, a number is
    // refused with E_INVALIDARG).
    HRESULT ReadValue(IString* name, IUnknown* into) override;
    // The child folders only, in entry order, for the integer keys 0, 1, 2, ...; E_FAIL past the
    // last, E_INVALIDARG for a key that holds no integer.
    HRESULT OpenChildAt(IVariant* key, int32_t, IFolderStream** child) override;
    // When `*object` answers IDataPersist it is loaded in place from the stored folder; otherwise
    // the stored component is made by name, loaded, and handed out in `*object`, which releases
    // what it held. A failed Load's code is returned and, for a new object, nothing is handed out.
    HRESULT ReadObject(IString* name, IUnknown** object, int32_t) override;
    // The entry must have been written with the same type.
    HRESULT ReadTyped(IString* name, void* value, int32_t type) override;

    // INamedCollection over the entries in order. get_Item: a folder entry is its folder (the one
    // OpenChild opens), an object entry the folder its object saved into, a value entry a new
    // variant holding it; bytes and typed entries have no object (E_FAIL, null). get_Index takes a
    // string. Rename fails (E_FAIL) when another entry has the name.
    HRESULT get_Count(int32_t* count) override;
    HRESULT get_Item(int32_t index, IUnknown** item) override;
    HRESULT get_Index(IUnknown* key, int32_t* index) override;
    HRESULT get_ItemName(int32_t index, IString** name) override;
    HRESULT Rename(int32_t index, IString* name) override;
    HRESULT CollectionLock() override { return S_OK; }
    HRESULT CollectionUnlock() override { return S_OK; }
    HRESULT IsCollectionLocked() override { return 0; }

    enum class Kind : uint8_t { kBytes, kTyped, kValue, kObject, kFolder };
    enum class Value : uint8_t { kEmpty, kInteger, kReal, kText };
    struct Entry {
        std::wstring name;
        Kind kind = Kind::kBytes;
        int32_t type = 0;      // kTyped: the value type code
        std::string bytes;     // kBytes, kTyped: the content
        Value value = Value::kEmpty;  // kValue
        int32_t integer = 0;
        double real = 0;
        std::wstring text;     // kValue with kText; kObject: the component name
        SmartPtr<CFolderStream> folder;  // kFolder, kObject
        mutable bool read = false;       // taken by name or position (in the kind and size asked for)
    };

    const std::vector<Entry>& Entries() const { return m_Entries; }
    int32_t Depth() const { return m_Depth; }
    // Adds `entry`, or replaces the entry of its name in place.
    void Put(Entry entry);
    // The entry named `name`, or null.
    const Entry* Find(const std::wstring& name) const;

private:
    // The entry named by `name` if it is of `kind`: S_OK; else E_POINTER for a null name, E_FAIL
    // when absent, E_INVALIDARG when of another kind.
    HRESULT Lookup(IString* name, Kind kind, const Entry** found) const;
    // A new child folder one level down, or null when it would nest too deep or cannot be made.
    CFolderStream* NewChild() const;

    int32_t m_Depth;
    std::vector<Entry> m_Entries;
    std::unordered_map<std::wstring, size_t> m_Index;
};

// A new, empty folder stream with one reference for the caller; null when it cannot be made.
HOST_API IFolderStream* HOSTNewFolderStream();
// The text form of `folder`, which must be a host folder stream. False, with `text` unchanged, for
// another folder or one holding a text that cannot be written as UTF-8.
HOST_API bool HOSTFolderStreamToText(IFolderStream* folder, std::string& text);
// A new folder stream read from its text form, with one reference for the caller; null, and a
// one-line `problem`, when the text is refused or the folder cannot be made.
HOST_API IFolderStream* HOSTFolderStreamFromText(std::string_view text, std::string& problem);
// The entries of `folder` (a host folder stream) and of the folders inside the ones that were
// read, that nobody asked for since it was made, as paths ("Parameters/Var3"): what a loading
// object left unread.
HOST_API std::vector<std::wstring> HOSTFolderStreamUnread(IFolderStream* folder);
