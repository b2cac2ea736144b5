// What the browser console shows and changes, apart from the network: the workspace as a tree of
// objects with their live values, and the protocol object's two property pages, read from its
// property table (IUIPropInterrogate) and its parameter collection (IParameters) alone, so that a
// component with other items gets a fitting page. Each snapshot is a JSON text; the console sends
// one again when its text changed.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

// {"type":"tree","objects":[{"path","name","depth","kind","value"}...]}: every object in depth-first
// order. Values: a step "on"/"off", an input/output "1"/"0", a result its number, tabs and managers
// the active child's name, a file collection "busy"/"idle", anything else "". `busy`, when given,
// is set when a file collection is busy: the tree will change by itself when it is done.
std::string ConsoleTree(const Workspace& workspace, bool* busy = nullptr);

// {"type":"pages","pages":[...],"items":[...],"parameters":[...]}: the pages the object asks for
// (GetPages), and what the two the console knows hold. The property table page
// ("UIPropPages.UIPropInterrogatePropPage") lists the table's items: an integer as a range
// {"id","caption","kind":"range","min","max","value"} or an enumeration {..."kind":"enumeration",
// "choices":[{"text","value"}...]}, a real {..."kind":"real"} and a text {..."kind":"text"};
// captions come from the host's string table under the object's name. The parameters page
// ("UIPropPages.UIParametersPropPage") lists {"index","name","type","value"}, type one of integer,
// real, text, object, none. A page the object does not ask for is an empty list.
std::string ConsolePages(IUnknown* object);

// Sets property item `id` to `value`: an integer within its range or among its choices (Control),
// a real (Control of its single-precision bits, or ControlEx of a variant), a text (ControlEx);
// false with `error` when the value does not fit the item or the table refuses it.
bool ConsoleControl(IUnknown* object, int64_t id, const nlohmann::json& value, std::string& error);

// Sets parameter `index` to `text`, converted by the parameter's type (integer, real, text);
// false with `error` when there is no such parameter or the text does not convert.
bool ConsoleSetParameter(IUnknown* object, int64_t index, const std::string& text, std::string& error);
