// The XML stream on arbitrary bytes taken as a document. A document that parses is walked through
// the stream's interfaces: every element is named by NextElement, opened by that name with the
// text OpenElement hands out equal to the child's own, and offered to ReadObject; its elements are
// copied into a new stream through BeginElement / WriteElement, whose names and leaf texts must
// read back exactly; and its text must be a fixed point of reading and writing. No host object is
// left behind.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/collections/HostObject.h"
#include "host/collections/HostString.h"
#include "host/components/XmlStream.h"

namespace {

[[noreturn]] void Fail(const char* what, const std::string& detail = std::string()) {
    std::fprintf(stderr, "fuzz_xmlstream: %s%s\n", what, detail.c_str());
    std::abort();
}

std::wstring TextOf(IUnknown* stream) {
    SmartPtr<IString> text = QueryAs<IString>(stream, IID_IString);
    if (!text) Fail("a stream without IString");
    wchar_t* chars = nullptr;
    int32_t length = -1;
    if (text->GetText(&chars, &length) < 0 || chars == nullptr || length < 0) Fail("GetText failed");
    if (chars[length] != 0) Fail("GetText's text is not terminated");
    return std::wstring(chars, static_cast<size_t>(length));
}

SmartPtr<IString> Str(const std::wstring& text) {
    return SmartPtr<IString>(HOSTNewString(text.data(), static_cast<int32_t>(text.size())));
}

void CheckObject(HRESULT hr, IUnknown* object) {
    if ((hr >= 0) != (object != nullptr)) Fail("ReadObject's result and object disagree");
    if (object) object->Release();
}

// Walks `source`'s elements and writes each into `copy`'s current element: an element with child
// elements as BeginElement ... EndElement, any other with WriteElement and its text.
void Walk(IXMLStream* source, IXMLStream* copy, int depth) {
    const std::wstring text = TextOf(source);
    void* data = nullptr;
    int32_t bytes = -1;
    if (source->GetBuffer(&data, &bytes) < 0 || bytes != static_cast<int32_t>(text.size() * sizeof(wchar_t)) ||
        std::wstring(static_cast<const wchar_t*>(data), text.size()) != text)
        Fail("GetBuffer and GetText differ");
    tagREFString name{0, nullptr};
    while (source->NextElement(&name) >= 0) {
        const std::wstring n(name.text, static_cast<size_t>(name.length));
        tagREFString content{-1, nullptr};
        SmartPtr<IXMLStream> child;
        if (source->OpenElement(name.length, name.text, &content, child.Out(), 1) < 0 || !child)
            Fail("the element NextElement named does not open");
        const std::wstring childText = TextOf(child.get());
        if (std::wstring(content.text, static_cast<size_t>(content.length)) != childText)
            Fail("OpenElement's text is not the child's text");
        tagREFString probe{0, nullptr};
        const bool parent = child->NextElement(&probe) >= 0;
        child->Seek(0, 0, 0);
        if (parent) {
            if (copy->BeginElement(Str(n).get(), 0, 0) < 0) Fail("BeginElement failed");
            Walk(child.get(), copy, depth + 1);
            if (copy->EndElement() < 0) Fail("EndElement failed");
        } else if (copy->WriteElement(Str(n).get(), 0, Str(childText).get(), 0) < 0) {
            Fail("WriteElement failed");
        }
        IUnknown* object = nullptr;
        CheckObject(source->ReadObject(static_cast<int32_t>(n.size()), n.data(), &object), object);
    }
    IUnknown* object = nullptr;
    CheckObject(source->ReadContainedObject(&object), object);
}

// `a` and `b` have elements of the same names in the same order, and the same text in every
// element without child elements.
void Compare(IXMLStream* a, IXMLStream* b) {
    tagREFString nameA{0, nullptr}, nameB{0, nullptr};
    for (;;) {
        const bool moreA = a->NextElement(&nameA) >= 0, moreB = b->NextElement(&nameB) >= 0;
        if (moreA != moreB) Fail("the copy has another count of elements");
        if (!moreA) return;
        const std::wstring n(nameA.text, static_cast<size_t>(nameA.length));
        if (n != std::wstring(nameB.text, static_cast<size_t>(nameB.length))) Fail("a name did not read back");
        SmartPtr<IXMLStream> childA, childB;
        a->OpenElement(nameA.length, nameA.text, nullptr, childA.Out(), 1);
        b->OpenElement(static_cast<int32_t>(n.size()), n.data(), nullptr, childB.Out(), 1);
        if (!childA || !childB) Fail("an element did not open");
        tagREFString probe{0, nullptr};
        const bool parent = childA->NextElement(&probe) >= 0;
        childA->Seek(0, 0, 0);
        if (parent)
            Compare(childA.get(), childB.get());
        else if (TextOf(childA.get()) != TextOf(childB.get()))
            Fail("a text did not read back");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int32_t live = HOSTLiveObjects();
    {
        const std::string text(reinterpret_cast<const char*>(data), size);
        std::string problem;
        SmartPtr<IXMLStream> stream(HOSTXMLStreamFromText(text, problem));
        if (!stream) {
            if (problem.empty()) Fail("refused without a problem");
        } else {
            if (!problem.empty()) Fail("read, with a problem: ", problem);
            SmartPtr<IXMLStream> copy(HOSTNewXMLStream());
            Walk(stream.get(), copy.get(), 0);
            std::string copied;
            if (!HOSTXMLStreamToText(copy.get(), copied)) Fail("the copy has no text");
            SmartPtr<IXMLStream> reread(HOSTXMLStreamFromText(copied, problem));
            if (!reread) Fail("the copy does not read back: ", problem);
            stream->Seek(0, 0, 0);
            Compare(stream.get(), reread.get());

            std::string first, second;
            if (!HOSTXMLStreamToText(stream.get(), first)) Fail("no text");
            SmartPtr<IXMLStream> again(HOSTXMLStreamFromText(first, problem));
            if (!again) Fail("the written text does not read back: ", problem + "\n" + first);
            if (!HOSTXMLStreamToText(again.get(), second) || second != first)
                Fail("the text is no fixed point:\n", first + "\n---\n" + second);
        }
    }
    if (HOSTLiveObjects() != live) Fail("host objects left behind");
    return 0;
}
