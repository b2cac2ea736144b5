// What the browser console shows and changes, apart from the network: the workspace as a tree of
// objects with their live values, and the protocol object's two property pages, read from its
// property table (IUIPropInterrogate) and its parameter collection (IParameters) alone, so that a
// component with other items gets a fitting page. Each snapshot is a JSON text; the console sends
// one again when its text changed, and of the tree only the values that changed.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

// The workspace as the tabs see it. The objects are walked once, when it is made: a workspace's
// objects stay as loaded and only their values change, so a later look reads the values alone and
// costs a few loads per object, whatever the names and however large the tree. It points at the
// objects: the workspace outlives it.
class CConsoleTree {
public:
    explicit CConsoleTree(const Workspace& workspace);

    // {"type":"tree","objects":[{"path","name","depth","kind","value"}...]}: every object in
    // depth-first order, with the values as last taken. Values: a step "on"/"off", an input/output
    // "1"/"0", a result its number, tabs and managers the active child's name, a file collection
    // "busy"/"idle", anything else "".
    std::string Whole() const;
    // Takes the values again: {"type":"values","objects":[{"path","value"}...]} for the objects
    // whose value changed since they were last taken, in tree order, or an empty text when none did.
    std::string Changes();
    // A file collection was busy when the values were taken: its value changes with no call.
    bool Busy() const { return m_Busy; }

private:
    // An object as shown: its JSON up to its value ({"depth":..,"kind":..,"name":..,"path":..,"value":),
    // its path and its value as JSON texts.
    struct Entry {
        std::string prefix, path, value;
    };
    // An object whose value can change, and what its value was made from, kept apart from the
    // texts so that a look goes through little memory.
    struct Sample {
        CWorkspaceObject* object;
        size_t entry;
        enum Kind : uint8_t { kState, kNumber, kBusy } kind;  // what the value is made from
        int32_t state = 0;
        double number = 0;
        bool busy = false;
    };
    bool Take(Sample& sample);  // true when the value shown changed

    std::vector<Entry> m_Objects;
    std::vector<Sample> m_Live;
    bool m_Busy = false;
};

// {"type":"pages","pages":[...],"items":[...],"parameters":[...]}: the pages the object asks for
// (GetPages), and what the two the console knows hold. The property table page
// ("UIPropPages.UIPropInterrogatePropPage") lists the table's items: an integer as a range
// {"id","caption","kind":"range","min","max","value"} or an enumeration {..."kind":"enumeration",
// "choices":[{"text","value"}...]} (a value that is none of them, as a state file may hold, comes
// last as {"text":its number,"value","listed":false}, which ConsoleControl does not take), a real
// {..."kind":"real"} and a text {..."kind":"text"}; captions come from the host's string table
// under the object's name. The parameters page ("UIPropPages.UIParametersPropPage") lists
// {"index","name","type","value"}, type one of integer, real, text, object, none. A page the
// object does not ask for is an empty list.
std::string ConsolePages(IUnknown* object);

// Sets property item `id` to `value`: an integer within its range or among its choices (Control),
// a real (Control of its single-precision bits, or ControlEx of a variant), a text (ControlEx);
// false with `error` when the value does not fit the item or the table refuses it.
bool ConsoleControl(IUnknown* object, int64_t id, const nlohmann::json& value, std::string& error);

// Sets parameter `index` to `text`, converted by the parameter's type (integer, real, text);
// false with `error` when there is no such parameter or the text does not convert.
bool ConsoleSetParameter(IUnknown* object, int64_t index, const std::string& text, std::string& error);
