// IParametersImpl<T, I>: an ordered collection of named, flagged parameters for the owner T.
#pragma once

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <type_traits>

#include "module/SmartPtr.h"
#include "module/interfaces/Component.h"
#include "module/interfaces/Inputs.h"
#include "module/interfaces/Parameters.h"
#include "module/interfaces/Streams.h"
#include "parameters/ParameterObject.h"
#include "parameters/ParametersXml.h"
#include "module/ValueType.h"
#include "text/Conversions.h"
#include "text/FileName.h"
#include "text/RefString.h"

// Mode bits of every save and load of a parameter collection.
constexpr int32_t PERSIST_CSV_NAMES = 0x10000;   // CSV: "name=" before each value
constexpr int32_t PERSIST_COMPACT = 0x800000;    // compact form
constexpr int32_t PERSIST_REBUILD = 0x1000000;   // loading rebuilds the collection
constexpr int32_t PERSIST_IN_PLACE = 0x2000000;  // object-form loading into existing objects
// Parameter flags that the persistence formats read.
constexpr int32_t PARAMETER_FILE_NAME = 0x06;        // the text value may be a file name
constexpr int32_t PARAMETER_SLASHES = 0x30;          // an unresolved file name gets slashes
constexpr int32_t PARAMETER_RELATIVE_NAME = 0x100;   // a file name relative to the installation
constexpr int32_t PARAMETER_NOT_COMPACT = 0x40000;   // the compact form leaves it out
constexpr int32_t PARAMETER_NOT_SAVED = 0x04000000;  // never saved (compact: unless its flags are cleared)

// Orders entries by name, code point by code point; entries without a name come first.
int PARAMETERSCompareByName(const void* a, const void* b);

// Slots 3-22 are those of I (IParametersCreatable); the template adds its own virtual operations
// from slot 23 on. Operations reach one another through their slots, so a class derived from the
// template that replaces one of them changes the others. The IUnknown slots belong to the owner.
// The lock is the owner's Lock/Unlock plus a flag; it is not counted.
// The persistence slots are declared by IParametersPersist, which hosts call by position.
template <class T, class I>
class IParametersImpl : public IParametersPersist {
    static_assert(std::is_base_of_v<I, IParametersPersist>, "the collection's slots 3-22 are IParametersCreatable's");

public:
    // ISimpleCollection
    HRESULT get_Count(int32_t* count) override {
        *count = m_Count;
        return S_OK;
    }
    HRESULT get_Item(int32_t index, IUnknown** item) override {
        if (item == nullptr) return E_POINTER;
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        SmartPtr<IUnknown> value;
        const HRESULT hr = Owner().getParameter(m_Parameters[index], value.Out());
        Owner().CollectionUnlock();
        if (hr < 0) return hr;
        if (SmartPtr<IVariant> variant = QueryAs<IVariant>(value.get(), IID_IVariant)) {
            if (variant->IsObject()) return variant->get_Object(item);
            if (variant->IsString()) {
                SmartPtr<IString> text;
                variant->get_String(text.Out());
                if (!text) return E_FAIL;
                *item = text.Detach();
                return S_OK;
            }
        }
        if (!value) return E_FAIL;
        *item = value.Detach();  // a number is handed out as its variant
        return S_OK;
    }

    // INamedCollection
    HRESULT get_Index(IUnknown* key, int32_t* index) override {
        SmartPtr<IString> name = QueryAs<IString>(key, IID_IString);
        SmartPtr<IVariant> variant = QueryAs<IVariant>(key, IID_IVariant);
        IUnknown* object = key;
        SmartPtr<IUnknown> held;  // a variant's object, which replaces the key
        if (variant) {
            if (variant->get_NumberType() != 0) {
                *index = variant->get_Integer();  // a number is the index itself, unchecked
                return S_OK;
            }
            if (variant->IsString()) variant->get_String(name.Out());
            if (variant->IsObject()) {
                variant->get_Object(held.Out());
                object = held.get();
            }
        }
        if (name) return IndexOfName(name.get(), index);
        if (object == nullptr) return E_FAIL;
        return IndexOfObject(object, key, index);
    }
    HRESULT get_ItemName(int32_t index, IString** name) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        *name = m_Parameters[index]->Name.Copy();
        Owner().CollectionUnlock();
        return *name ? S_OK : E_FAIL;
    }
    HRESULT Rename(int32_t index, IString* name) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        m_Parameters[index]->Name.Assign(name);
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT CollectionLock() override {
        Owner().Lock();
        m_Locked = 1;
        return S_OK;
    }
    HRESULT CollectionUnlock() override {
        Owner().Unlock();
        m_Locked = 0;
        return S_OK;
    }
    HRESULT IsCollectionLocked() override { return m_Locked ? 1 : 0; }

    // IParameters
    HRESULT Get(int32_t index, IString** name, IVariant** value, IUnknown** descriptor, int32_t* flags) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        PARAMETEROBJECT* entry = m_Parameters[index];
        if (value != nullptr) {
            SmartPtr<IUnknown> effective;
            if (Owner().getParameter(entry, effective.Out()) < 0) effective.Reset();
            *value = AsVariant(effective.get());
        }
        if (descriptor != nullptr && entry->Descriptor) *descriptor = entry->Descriptor.Copy();
        if (flags != nullptr) *flags = entry->Flags;
        Owner().CollectionUnlock();
        if (name != nullptr) Owner().get_ItemName(index, name);  // its result does not matter here
        return S_OK;
    }
    HRESULT get_ItemVariant(int32_t index, IVariant** value) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        SmartPtr<IUnknown> effective;
        const HRESULT hr = Owner().getParameter(m_Parameters[index], effective.Out());
        if (hr >= 0) *value = AsVariant(effective.get());
        Owner().CollectionUnlock();
        return hr;
    }
    HRESULT put_Item(int32_t index, IUnknown* value) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        // A variant is shared with the caller; the old value is released after the new one is in.
        m_Parameters[index]->Item.Attach(AsVariant(value));
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT get_ItemDescriptor(int32_t index, IUnknown** descriptor) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        *descriptor = m_Parameters[index]->Descriptor.Copy();
        Owner().CollectionUnlock();
        return *descriptor ? S_OK : E_FAIL;
    }
    HRESULT put_ItemDescriptor(int32_t index, IUnknown* descriptor) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        m_Parameters[index]->Descriptor.Assign(descriptor);
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT get_ItemFlags(int32_t index, int32_t* flags) override {
        if (!InRange(index)) return E_INVALIDARG;
        *flags = m_Parameters[index]->Flags;
        return S_OK;
    }
    HRESULT put_ItemFlags(int32_t index, int32_t flags) override {
        if (!InRange(index)) return E_INVALIDARG;
        m_Parameters[index]->Flags = flags;
        return S_OK;
    }

    // IParametersCreatable
    HRESULT Add(IString* name, IUnknown* value, IUnknown* descriptor, int32_t flags) override {
        if (m_Count >= m_Capacity) {
            PARAMETEROBJECT** grown = new (std::nothrow) PARAMETEROBJECT*[m_Capacity + kGrowth];
            if (grown == nullptr) return E_FAIL;
            Owner().CollectionLock();
            if (m_Count > 0) std::memcpy(grown, m_Parameters, sizeof(PARAMETEROBJECT*) * m_Count);
            delete[] m_Parameters;
            m_Parameters = grown;
            m_Capacity += kGrowth;
            Owner().CollectionUnlock();
        }
        SmartPtr<IVariant> stored;
        if (value == nullptr) {
            // The entry's value is never null: an absent value is an empty text.
            stored.Attach(CREFString::CreateVariant());
            SmartPtr<IString> empty(CREFString::CreateString());
            if (stored) stored->put_Object(empty.get());
        } else {
            stored.Attach(AsVariant(value));
        }
        PARAMETEROBJECT* entry = new (std::nothrow) PARAMETEROBJECT();
        if (entry == nullptr) return E_FAIL;
        Owner().CollectionLock();
        m_Parameters[m_Count] = entry;
        entry->Name.Assign(name);
        entry->Item.Attach(stored.Detach());
        entry->Descriptor.Assign(descriptor);
        entry->Flags = flags;
        ++m_Count;
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT Remove(int32_t index) override {
        if (!InRange(index)) return E_INVALIDARG;
        Owner().CollectionLock();
        PARAMETEROBJECT* entry = m_Parameters[index];
        std::memmove(m_Parameters + index, m_Parameters + index + 1, sizeof(PARAMETEROBJECT*) * (m_Count - index - 1));
        --m_Count;
        Free(entry);
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT RemoveAll() override {
        Owner().CollectionLock();
        const int32_t count = m_Count;
        m_Count = 0;  // first, so that a release that reaches back finds an empty collection
        for (int32_t i = 0; i < count; ++i) Free(m_Parameters[i]);
        Owner().CollectionUnlock();
        return S_OK;
    }
    HRESULT Copy(IParameters* source) override {
        if (source == nullptr) return S_OK;
        int32_t count = 0;
        source->get_Count(&count);  // read once: copying a collection into itself appends one copy
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IString> name;
            SmartPtr<IVariant> value;
            SmartPtr<IUnknown> descriptor;
            int32_t flags = 0;
            source->Get(i, name.Out(), value.Out(), descriptor.Out(), &flags);
            SmartPtr<IVariant> copy(CREFString::CreateVariant());
            if (copy) copy->put_Object(value.get());
            Owner().Add(name.get(), copy.get(), descriptor.get(), flags);
        }
        return S_OK;
    }
    HRESULT Sort(int32_t) override {
        if (m_Count > 1) std::qsort(m_Parameters, m_Count, sizeof(PARAMETEROBJECT*), PARAMETERSCompareByName);
        return S_OK;
    }

    // slot 23: the values as one comma-separated record without a line end: each field the value's
    // text (a text as it is, a number as ISCreate(value, -1) writes it, an object as its name),
    // with PERSIST_CSV_NAMES preceded by the name and "="; no quoting. The compact form leaves out
    // parameters flagged PARAMETER_NOT_COMPACT, separator included. Left to us, the byte form: each
    // text goes to Write whole, as the module's 32-bit wide characters (4 bytes a character), so a
    // stream never receives half of one. Always 0; a stream that is no CSV stream gets nothing.
    HRESULT Params_SaveCSV(IDataStream* stream, int32_t mode) override {
        // Only a CSV stream is written to, and through the data stream it was handed as.
        if (!QueryAs<ICSVStream>(stream, IID_ICSVStream)) return S_OK;
        // Every text goes to Write, an empty one too.
        auto write = [&](const tagREFString& text) {
            const bool empty = text.text == nullptr || text.length <= 0;
            stream->Write(empty ? L"" : text.text, empty ? 0 : text.length * static_cast<int32_t>(sizeof(wchar_t)), 0);
        };
        bool first = true;
        for (int32_t i = 0; i < m_Count; ++i) {
            // The value is taken before the flags decide whether the field is written at all.
            SmartPtr<IVariant> value;
            Owner().get_ItemVariant(i, value.Out());
            int32_t flags = 0;
            Owner().get_ItemFlags(i, &flags);
            if ((mode & PERSIST_COMPACT) && (flags & PARAMETER_NOT_COMPACT)) continue;
            if (!first) write({1, L","});
            first = false;
            if (mode & PERSIST_CSV_NAMES) {
                SmartPtr<IString> name;
                Owner().get_ItemName(i, name.Out());
                write(CREFString(name.get()));
                write({1, L"="});
            }
            SmartPtr<IString> text(PARAMETERSValueText(value.get()));
            write(CREFString(text.get()));
        }
        return S_OK;
    }

    // slot 24: the value form, one element per parameter (ParametersXml.h). Always 0.
    HRESULT Params_SaveXML(IDataStream* stream, int32_t mode) override { return PARAMETERSSaveXML(this, stream, mode); }
    // slot 25: updates by element name, or rebuilds with PERSIST_REBUILD. Always 0.
    HRESULT Params_LoadXML(IDataStream* stream, int32_t mode, int32_t) override { return PARAMETERSLoadXML(this, stream, mode); }
    // slot 26: each written parameter is one entry of `stream` named after it ("Item<n>" when it
    // has no name): a plain value when there are no flags or descriptor to write and the value
    // holds no object, else a child folder with "Flags" (4 bytes), "Value" or "Unknown", and
    // "Descriptor". File names are written in portable form. Always 0.
    HRESULT Params_SaveFolderStream(IDataStream* stream, int32_t mode) override {
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return S_OK;
        for (int32_t i = 0; i < m_Count; ++i) SaveToFolder(folder.get(), i, mode);
        return S_OK;
    }
    // slot 27: updates the parameters the folder names, or, with PERSIST_REBUILD, rebuilds the
    // collection from the folder's entries in their order. File names come back concrete. Always 0.
    HRESULT Params_LoadFolderStream(IDataStream* stream, int32_t mode) override {
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return S_OK;
        // Left to us: a folder without a named view lists nothing, so nothing is found; rebuilding
        // then leaves the collection empty.
        SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(folder.get(), IID_INamedCollection);
        if (mode & PERSIST_REBUILD) {
            Owner().RemoveAll();
            int32_t count = 0;
            if (entries) entries->get_Count(&count);
            for (int32_t j = 0; j < count; ++j) {
                SmartPtr<IString> name;
                SmartPtr<IUnknown> entry;
                entries->get_ItemName(j, name.Out());
                entries->get_Item(j, entry.Out());
                SmartPtr<IVariant> value(CREFString::CreateVariant());
                SmartPtr<IUnknown> descriptor;
                int32_t flags = 0;
                if (SmartPtr<IFolderStream> child = QueryAs<IFolderStream>(entry.get(), IID_IFolderStream)) {
                    if (child->ReadBytes(FolderName(L"Flags").get(), &flags, 4, 0) < 0) flags = 0;
                    ReadFolderValue(child.get(), value.get(), flags);
                    child->ReadObject(FolderName(L"Descriptor").get(), descriptor.Out(), 0);
                } else if (value) {
                    folder->ReadValue(name.get(), value.get());
                }
                Owner().Add(name.get(), value.get(), descriptor.get(), flags);
            }
            return S_OK;
        }
        const int32_t count = m_Count;
        for (int32_t i = 0; i < count && entries; ++i) {
            SmartPtr<IString> name;
            Owner().get_ItemName(i, name.Out());
            int32_t index = 0;
            if (!name || entries->get_Index(name.get(), &index) < 0) continue;
            SmartPtr<IUnknown> entry;
            entries->get_Item(index, entry.Out());
            SmartPtr<IVariant> value(CREFString::CreateVariant());
            SmartPtr<IFolderStream> child = QueryAs<IFolderStream>(entry.get(), IID_IFolderStream);
            if (!child) {
                if (value) folder->ReadValue(name.get(), value.get());
                Owner().put_Item(i, value.get());
                continue;
            }
            int32_t flags = 0;
            if (child->ReadBytes(FolderName(L"Flags").get(), &flags, 4, 0) >= 0) Owner().put_ItemFlags(i, flags);
            else flags = 0;
            ReadFolderValue(child.get(), value.get(), flags);
            Owner().put_Item(i, value.get());
            SmartPtr<IUnknown> descriptor;
            if (child->ReadObject(FolderName(L"Descriptor").get(), descriptor.Out(), 0) >= 0)
                Owner().put_ItemDescriptor(i, descriptor.get());
        }
        return S_OK;
    }
    // slot 28: the object form, only the parameters whose value persists itself. Always 0.
    HRESULT Params_SaveXMLUnk(IDataStream* stream, int32_t mode) override {
        return PARAMETERSSaveXMLObjects(this, stream, mode);
    }
    // slot 29: with PERSIST_IN_PLACE the objects already held load their own elements. Always 0.
    HRESULT Params_LoadXMLUnk(IDataStream* stream, int32_t mode) override {
        return PARAMETERSLoadXMLObjects(this, stream, mode);
    }

    // slot 30: the entry's effective value. A value delivered by the entry's input binding wins
    // (result 1); the stored value is the fall-back (result 0).
    virtual HRESULT getParameter(PARAMETEROBJECT* entry, IUnknown** value) {
        if (entry->Descriptor) {
            if (SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(entry->Descriptor.get(), IID_IInputParameter)) {
                if (input->get_Value(value) >= 0) return S_FALSE;
            }
        }
        if (!entry->Item) return E_FAIL;
        *value = entry->Item.Copy();
        return S_OK;
    }

protected:
    IParametersImpl() = default;
    ~IParametersImpl() {
        const int32_t count = m_Count;
        m_Count = 0;  // as RemoveAll does: a release that reaches back finds an empty collection
        for (int32_t i = 0; i < count; ++i) Free(m_Parameters[i]);
        if (m_Capacity != 0) delete[] m_Parameters;
    }
    IParametersImpl(const IParametersImpl&) = delete;
    IParametersImpl& operator=(const IParametersImpl&) = delete;

    T& Owner() { return static_cast<T&>(*this); }
    bool InRange(int32_t index) const { return index >= 0 && index < m_Count; }

    PARAMETEROBJECT** m_Parameters = nullptr;
    int32_t m_Count = 0;
    int32_t m_Capacity = 0;
    int32_t m_Locked = 0;

private:
    static constexpr int32_t kGrowth = 10;

    // `value` as a variant with one reference: a variant itself, anything else (null included)
    // wrapped in a new variant. Null only when no variant can be made.
    static IVariant* AsVariant(IUnknown* value) {
        if (SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant)) return variant.Detach();
        IVariant* wrapped = CREFString::CreateVariant();
        if (wrapped) wrapped->put_Object(value);
        return wrapped;
    }

    // The name, the value and the descriptor are released in that order, then the entry goes.
    static void Free(PARAMETEROBJECT* entry) {
        entry->Name.Reset();
        entry->Item.Reset();
        entry->Descriptor.Reset();
        delete entry;
    }

    static SmartPtr<IString> FolderName(const wchar_t* name) { return SmartPtr<IString>(ISCreate(name)); }
    static SmartPtr<IVariant> Shared(IVariant* value) {
        SmartPtr<IVariant> held;
        held.Assign(value);
        return held;
    }

    // One parameter into the folder: its name, the compact decisions, then a plain value or a child
    // folder. The descriptor is asked whether it is an input binding only where a decision needs it.
    void SaveToFolder(IFolderStream* folder, int32_t i, int32_t mode) {
        int32_t flags = 0;
        Owner().get_ItemFlags(i, &flags);
        SmartPtr<IString> name;
        Owner().get_ItemName(i, name.Out());
        if (CREFString(name.get()).length == 0) {
            wchar_t numbered[256];
            _swprintf(numbered, 256, L"Item%d", i + 1);
            name.Attach(ISCreate(numbered));
        }
        SmartPtr<IUnknown> descriptor;
        Owner().get_ItemDescriptor(i, descriptor.Out());
        const auto binding = [&descriptor] {
            return static_cast<bool>(QueryAs<IInputParameter>(descriptor.get(), IID_IInputParameter));
        };
        bool writeDescriptor = static_cast<bool>(descriptor);
        int32_t written = flags;
        if (!(mode & PERSIST_COMPACT)) {
            if (flags & PARAMETER_NOT_SAVED) return;
        } else if ((flags & 0xF0) == 0x40 && !binding()) {
            writeDescriptor = false;  // a descriptor that is no input binding is dropped in the compact form
            written = 0;
        } else if (ValueTypeOf(flags) == VALUE_INT32 || ValueTypeOf(flags) == VALUE_DOUBLE || flags == 9) {
            written = 0;
        } else if (descriptor ? (flags & PARAMETER_NOT_SAVED) != 0 : (flags & (PARAMETER_NOT_COMPACT | PARAMETER_NOT_SAVED)) != 0) {
            return;
        }
        SmartPtr<IVariant> value;
        Owner().get_ItemVariant(i, value.Out());
        if (written == 0 && !writeDescriptor && !(value && value->IsObject())) {
            folder->WriteValue(name.get(), value.get());
            return;
        }
        SmartPtr<IFolderStream> child;
        folder->OpenChild(name.get(), 0, child.Out());
        if (!child) return;
        SmartPtr<IVariant> toWrite = value;
        if (written != 0) {
            child->WriteBytes(FolderName(L"Flags").get(), &written, 4, 0);
            if ((written & PARAMETER_FILE_NAME) && value) toWrite = PortableFileName(value.get(), written);
        }
        if (value && (value->IsString() || !value->IsObject())) {
            child->WriteValue(FolderName(L"Value").get(), toWrite.get());
        } else if (value && !binding()) {
            SmartPtr<IUnknown> object;
            value->get_Object(object.Out());
            child->WriteObject(FolderName(L"Unknown").get(), object.get(), 0);
        }
        if (writeDescriptor) child->WriteObject(FolderName(L"Descriptor").get(), descriptor.get(), 0);
    }

    // The value to write for a file name: mapped, else (with PARAMETER_RELATIVE_NAME) relative to
    // the installation; the parameter's own value is left as it is.
    static SmartPtr<IVariant> PortableFileName(IVariant* value, int32_t flags) {
        SmartPtr<IString> text;
        if (value->get_String(text.Out()) < 0 || !text) return Shared(value);
        SmartPtr<IString> portable;
        if (FILENAMEMap(text.get(), portable.Out()) < 0) {
            if (!(flags & PARAMETER_RELATIVE_NAME)) return Shared(value);
            FILENAMECreateRelative(text.get(), portable.Out());
        }
        return SmartPtr<IVariant>(IVCreate(portable.get()));
    }

    // "Value", or else the object of "Unknown", into `value`; then a file name made concrete.
    static void ReadFolderValue(IFolderStream* child, IVariant* value, int32_t flags) {
        if (value == nullptr) return;
        if (child->ReadValue(FolderName(L"Value").get(), value) < 0) {
            SmartPtr<IUnknown> object;
            if (child->ReadObject(FolderName(L"Unknown").get(), object.Out(), 0) >= 0) value->put_Object(object.get());
        }
        if (!(flags & PARAMETER_FILE_NAME)) return;
        SmartPtr<IString> text;
        if (value->get_String(text.Out()) < 0 || !text) return;
        SmartPtr<IString> concrete;
        if (FILENAMEUnmap(text.get(), concrete.Out()) >= 0) {
            value->put_String(concrete.get());
        } else if (flags & PARAMETER_RELATIVE_NAME) {
            FILENAMECreateAbsolute(text.get(), concrete.Out());
            value->put_String(concrete.get());
        } else if (flags & PARAMETER_SLASHES) {
            FILENAMESlashes(text.get());
        }
    }
  // the holders release its references

    HRESULT IndexOfName(IString* key, int32_t* index) {
        wchar_t* text = nullptr;
        int32_t length = 0;
        key->GetText(&text, &length);
        if (length > 0) {
            for (int32_t i = 0; i < m_Count; ++i) {
                SmartPtr<IString> name;
                if (Owner().get_ItemName(i, name.Out()) < 0 || !name) continue;
                wchar_t* candidate = nullptr;
                int32_t candidateLength = 0;
                name->GetText(&candidate, &candidateLength);
                if (candidateLength == length && std::wmemcmp(candidate, text, length) == 0) {
                    *index = i;
                    return S_OK;
                }
            }
        }
        *index = -1;
        return E_FAIL;
    }

    // First by the identity of the entries' value objects, then by the identity of their descriptors.
    // Identities are asked only when there are two objects to compare, each time.
    HRESULT IndexOfObject(IUnknown* object, IUnknown* key, int32_t* index) {
        const auto same = [](IUnknown* entry, IUnknown* wanted) {
            SmartPtr<IUnknown> a = QueryAs<IUnknown>(entry, IID_IUnknown);
            SmartPtr<IUnknown> b = QueryAs<IUnknown>(wanted, IID_IUnknown);
            return a && a.get() == b.get();
        };
        Owner().CollectionLock();
        for (int32_t i = 0; i < m_Count; ++i) {
            // An entry's value is stored as a variant: it is asked for its object directly.
            IVariant* item = static_cast<IVariant*>(m_Parameters[i]->Item.get());
            SmartPtr<IUnknown> held;
            if (item) item->get_Object(held.Out());
            if (held && object && same(held.get(), object)) {
                *index = i;
                Owner().CollectionUnlock();
                return S_OK;
            }
        }
        for (int32_t i = 0; i < m_Count; ++i) {
            IUnknown* descriptor = m_Parameters[i]->Descriptor.get();
            if (descriptor && key && same(descriptor, key)) {
                *index = i;
                Owner().CollectionUnlock();
                return S_OK;
            }
        }
        Owner().CollectionUnlock();
        return E_FAIL;
    }
};
