#include "parameters/ParametersXml.h"

#include <cwchar>

#include "module/SmartPtr.h"
#include "module/interfaces/Component.h"
#include "parameters/ParametersImpl.h"
#include "text/Conversions.h"
#include "text/RefString.h"

namespace {

constexpr int32_t kFlagHidden = 0x8000000;  // never written
constexpr int32_t kFlagDropDescriptor = 0x40;
constexpr int32_t kFlagColour = 0x23;

SmartPtr<IString> Text(const wchar_t* text) { return SmartPtr<IString>(ISCreate(text)); }

// Element names compare without regard to case and must have the same length.
bool IsNamed(const tagREFString& name, const wchar_t* wanted) {
    const CREFString other(wanted);
    return name.length == other.length && CREFString(name).CompareI(other, 0) == S_OK;
}

void WriteElement(IXMLStream* xml, const wchar_t* name, IString* text) { xml->WriteElement(Text(name).get(), 0, text, 0); }

// Flags as "#" and upper-case hexadecimal, at least six digits.
void WriteFlags(IXMLStream* xml, int32_t flags) { WriteElement(xml, L"Flags", SmartPtr<IString>(ISCreateHex(flags)).get()); }

// `object`'s own element, with what its Save writes into the stream.
void WriteObjectElement(IXMLStream* xml, IDataStream* stream, IDataPersist* object, int32_t mode) {
    xml->BeginObjectElement(object, 0, 0);
    object->Save(stream, mode);
    xml->EndElement();
}

// The text of the child element `name` of `element`; false when it cannot be opened. The view
// borrows the stream's text, which lives as long as the stream held in `child`.
bool ChildText(IXMLStream* element, const tagREFString& name, SmartPtr<IXMLStream>& child, CREFString& text) {
    tagREFString found{0, nullptr};
    if (element->OpenElement(name.length, name.text, &found, child.Out(), 1) < 0) return false;
    text = CREFString(found);
    return true;
}

// One parameter in the value form.
void SaveValue(IParametersCreatable* parameters, IXMLStream* xml, IDataStream* stream, int32_t i, int32_t mode) {
    SmartPtr<IString> name;
    parameters->get_ItemName(i, name.Out());
    SmartPtr<IVariant> value;
    parameters->get_ItemVariant(i, value.Out());  // a bound parameter's current input value
    SmartPtr<IUnknown> held;
    parameters->get_ItemDescriptor(i, held.Out());
    SmartPtr<IDataPersist> descriptor = QueryAs<IDataPersist>(held.get(), IID_IDataPersist);
    int32_t flags = 0;
    parameters->get_ItemFlags(i, &flags);
    flags &= ~kFlagHidden;
    if (mode & PERSIST_COMPACT) {
        if (flags & kFlagDropDescriptor) {
            flags &= ~kFlagDropDescriptor;
            descriptor.Reset();
        }
        if (flags & PARAMETER_NOT_COMPACT) descriptor.Reset();
        // A colour: its number alone, in hexadecimal.
        if (flags == kFlagColour && !descriptor && value && value->get_NumberType() != 0) {
            SmartPtr<IString> colour(ISCreateHex(value->get_Integer()));
            xml->WriteElement(name.get(), 0, colour.get(), 0);
            return;
        }
        // Plain numbers and texts, whose kind the text shows: no flags to write. A colour that
        // is not written as one has type 3 and falls under this too.
        const int32_t type = flags & 0x0F;
        if (type == 3 || type == 5 || type == 6 || flags == 9) flags = 0;
    }
    SmartPtr<IString> text(PARAMETERSValueText(value.get()));
    if (!descriptor && flags == 0) {
        xml->WriteElement(name.get(), 0, text.get(), 0);
        return;
    }
    xml->BeginElement(name.get(), 0, 0);
    WriteElement(xml, L"Value", text.get());
    if (flags != 0) WriteFlags(xml, flags);
    if (descriptor) WriteObjectElement(xml, stream, descriptor.get(), mode);
    xml->EndElement();
}

// The children of one value-form element into parameter `index`.
void LoadValue(IParametersCreatable* parameters, IXMLStream* element, int32_t index) {
    bool hasChildren = false;
    tagREFString child{0, nullptr};
    while (element->NextElement(&child) >= 0) {
        hasChildren = true;
        SmartPtr<IXMLStream> opened;
        CREFString text;  // a child that cannot be opened leaves the field as it was
        if (IsNamed(child, L"Value")) {
            // After leading blanks: an integer of at most nine characters, a real with up to 18
            // fraction digits, or else the text itself.
            if (ChildText(element, child, opened, text))
                parameters->put_Item(index, SmartPtr<IVariant>(IVCreateConvert(text)).get());
        } else if (IsNamed(child, L"Flags")) {
            if (ChildText(element, child, opened, text)) parameters->put_ItemFlags(index, _IS2Integer(text, 10));
        } else {
            SmartPtr<IUnknown> descriptor;
            element->ReadObject(child.length, child.text, descriptor.Out());
            parameters->put_ItemDescriptor(index, descriptor.get());  // none clears it
        }
    }
    if (hasChildren) return;
    // The short and colour forms: the element's own text, typed as a converted text is.
    CREFString text(static_cast<IDataStream*>(element));
    parameters->put_Item(index, SmartPtr<IVariant>(IVCreateConvert(text)).get());
}

// The name test of an in-place load: the object's own name and the element's agree over the
// shorter length, without regard to case. An object without a name takes any element.
bool AcceptsElement(IUnknown* object, const tagREFString& element) {
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object, IID_IObjectInfo);
    if (!info) return true;
    tagREFString name{0, nullptr};
    if (info->GetName(0, &name) < 0) return false;
    return CREFString(element).CompareI(name, 0) >= 0;  // fails when either is empty
}

// Calls `each(xml, element, name)` for every top-level element of an XML stream, in document order,
// after emptying the collection when it is to be rebuilt; nothing for another kind of stream.
template <class Each>
void ForEachElement(IParametersCreatable* parameters, IDataStream* stream, bool rebuild, Each each) {
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
    if (!xml) return;
    if (rebuild) parameters->RemoveAll();
    tagREFString element{0, nullptr};
    while (xml->NextElement(&element) >= 0) {
        SmartPtr<IString> name(ISCreate(element));
        each(xml.get(), element, name.get());
    }
}

}  // namespace

IString* PARAMETERSValueText(IVariant* value) {
    if (value == nullptr) return nullptr;
    // A text or a number is what ISCreate makes of the variant (it asks which it holds); only a
    // variant that holds neither is asked for an object.
    if (IString* text = ISCreate(value, -1)) return text;
    if (!value->IsObject()) return nullptr;
    SmartPtr<IUnknown> object;
    value->get_Object(object.Out());
    tagREFString name{0, nullptr};
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(object.get(), IID_IObjectInfo);
    if (!info || info->GetName(0, &name) < 0) name = tagREFString{0, nullptr};
    return ISCreate(name);
}

HRESULT PARAMETERSSaveXML(IParametersCreatable* parameters, IDataStream* stream, int32_t mode) {
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
    if (!xml) return S_OK;
    int32_t count = 0;
    parameters->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) SaveValue(parameters, xml.get(), stream, i, mode);
    return S_OK;
}

HRESULT PARAMETERSLoadXML(IParametersCreatable* parameters, IDataStream* stream, int32_t mode) {
    const bool rebuild = (mode & PERSIST_REBUILD) != 0;
    ForEachElement(parameters, stream, rebuild, [&](IXMLStream* xml, const tagREFString& element, IString* name) {
        int32_t index = 0;
        if (rebuild) {
            // Its index stands as the value until a value is read.
            parameters->get_Count(&index);
            SmartPtr<IVariant> placeholder(IVCreate(index));
            if (parameters->Add(name, placeholder.get(), nullptr, 0) < 0) return;
        } else if (parameters->get_Index(name, &index) < 0) {
            return;  // not ours: skipped with its children
        }
        SmartPtr<IXMLStream> opened;
        tagREFString text{0, nullptr};
        if (xml->OpenElement(element.length, element.text, &text, opened.Out(), 1) < 0 || !opened) return;
        LoadValue(parameters, opened.get(), index);
    });
    return S_OK;
}

HRESULT PARAMETERSSaveXMLObjects(IParametersCreatable* parameters, IDataStream* stream, int32_t mode) {
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
    if (!xml) return S_OK;
    int32_t count = 0;
    parameters->get_Count(&count);
    for (int32_t i = 0; i < count; ++i) {
        SmartPtr<IUnknown> item;
        parameters->get_Item(i, item.Out());
        SmartPtr<IDataPersist> object = QueryAs<IDataPersist>(item.get(), IID_IDataPersist);
        if (!object) continue;
        SmartPtr<IString> name;
        parameters->get_ItemName(i, name.Out());
        if (CREFString(name.get()).length == 0) {
            wchar_t numbered[32];
            _swprintf(numbered, 32, L"Item%d", i + 1);
            name = Text(numbered);
        }
        int32_t flags = 0;
        parameters->get_ItemFlags(i, &flags);
        xml->BeginElement(name.get(), 0, 0);
        if (flags != 0) WriteFlags(xml.get(), flags);
        WriteObjectElement(xml.get(), stream, object.get(), mode);
        SmartPtr<IUnknown> held;
        parameters->get_ItemDescriptor(i, held.Out());
        if (SmartPtr<IDataPersist> descriptor = QueryAs<IDataPersist>(held.get(), IID_IDataPersist)) {
            xml->BeginElement(Text(L"ItemDescriptor").get(), 0, 0);
            WriteObjectElement(xml.get(), stream, descriptor.get(), mode);
            xml->EndElement();
        }
        xml->EndElement();
    }
    return S_OK;
}

HRESULT PARAMETERSLoadXMLObjects(IParametersCreatable* parameters, IDataStream* stream, int32_t mode) {
    const bool rebuild = (mode & PERSIST_REBUILD) != 0;
    ForEachElement(parameters, stream, rebuild, [&](IXMLStream* xml, const tagREFString& element, IString* name) {
        SmartPtr<IUnknown> object, descriptor;
        int32_t flags = 0;
        bool readChildren = true;
        int32_t index = 0;
        if (mode & PERSIST_IN_PLACE) {
            if (parameters->get_Index(name, &index) >= 0) parameters->get_Item(index, object.Out());
            else readChildren = false;
        }
        SmartPtr<IXMLStream> opened;
        tagREFString text{0, nullptr};
        if (readChildren && xml->OpenElement(element.length, element.text, &text, opened.Out(), 1) >= 0 && opened) {
            tagREFString child{0, nullptr};
            while (opened->NextElement(&child) >= 0) {
                SmartPtr<IXMLStream> inner;
                CREFString flagsText;
                if (IsNamed(child, L"Flags")) {
                    if (ChildText(opened.get(), child, inner, flagsText)) flags = _IS2Integer(flagsText, 10);
                } else if (IsNamed(child, L"ItemDescriptor")) {
                    if (opened->OpenElement(child.length, child.text, &text, inner.Out(), 1) >= 0 && inner)
                        inner->ReadContainedObject(descriptor.Out());
                } else if (!object) {
                    opened->ReadObject(child.length, child.text, object.Out());
                } else if (SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object.get(), IID_IDataPersist)) {
                    if (!AcceptsElement(object.get(), child)) continue;
                    if (opened->OpenElement(child.length, child.text, &text, inner.Out(), 1) >= 0 && inner)
                        persist->Load(inner.get(), 0);
                }
            }
        }
        if (rebuild) {
            if (CREFString(name).length > 0 && object) parameters->Add(name, object.get(), descriptor.get(), flags);
        } else if (parameters->get_Index(name, &index) >= 0) {
            parameters->put_Item(index, object.get());
            parameters->put_ItemFlags(index, flags);
            parameters->put_ItemDescriptor(index, descriptor.get());
        }
    });
    return S_OK;
}
