// CMarkupScan: the elements of a markup text, one after another, each with its tag text and
// its content. Not a parser: it finds tags as text, the way a settings loader that only wants
// flat name/value elements reads them.
#pragma once

#include <climits>
#include <cstdint>

#include "text/RefString.h"

// Each step finds the next "<" that is not followed by "/" and the first ">" after it. The tag
// text lies between them, without leading white space and control characters and without
// trailing characters below 0x21 or 0x7F; the tag name is the tag text up to its first blank or
// carriage return. The element is the first "<" name from there on (the tag itself, unless
// blanks follow its "<"). Its content runs from after the ">" that follows to the next
// "</" name ">"; the scan goes on after that closing tag, so nested elements are passed over
// with their parent. Without a closing tag the content is empty and the scan goes on after the
// element's opening tag.
//
// Like a view it owns no text: the text must outlive the scan and the views it hands out. The
// closing tags are indexed once by name, so a whole scan costs time linear in the text, however
// many tags lack their closing tag; should the index not fit in memory, closing tags are searched
// for in the text instead.
class CMarkupScan {
public:
    explicit CMarkupScan(CREFString text);
    ~CMarkupScan();
    CMarkupScan(const CMarkupScan&) = delete;
    CMarkupScan& operator=(const CMarkupScan&) = delete;

    // The next element's tag text and content; false (views untouched) when there is none.
    bool Next(tagREFString* tag, tagREFString* content);

private:
    struct Closing {
        int32_t position;  // of its "<"
        int32_t name;      // start of the name after "</"
        int32_t length;    // of the name
        int32_t next;      // the next closing tag in the same bucket, by position; -1 at the end
    };

    void Index();
    int32_t ElementAfter(tagREFString name, int32_t from, int32_t fallback);
    // Position of the first "</" name ">" at or after `from`, or -1. Successive calls must pass
    // growing positions: the index forgets what lies before them.
    int32_t FindClosing(tagREFString name, int32_t from);
    bool SameName(const Closing& closing, tagREFString name) const;
    static uint32_t Hash(const wchar_t* text, int32_t length);

    CREFString m_Text;
    int32_t m_Position = 0;
    Closing* m_Closings = nullptr;
    int32_t* m_Buckets = nullptr;  // first closing tag of each bucket not yet passed
    uint32_t m_Mask = 0;           // bucket count - 1; the count is a power of two
    bool m_Unindexed = false;      // closing tags exist but the index could not be made
    int64_t m_SearchBudget;        // characters ElementAfter may still look at
    int32_t m_NoCloseFrom = INT32_MAX;  // no ">" lies at or after this place
};
