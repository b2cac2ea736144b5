// What the browser console shows and changes, apart from the network: the workspace as a tree of
// objects with their live values, and the protocol object's two property pages, read from its
// property table (IUIPropInterrogate) and its parameter collection (IParameters) alone, so that a
// component with other items gets a fitting page. Each snapshot is a JSON text; the console sends
// one again when its text changed.
#pragma once

#include <string>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

// {"type":"tree","objects":[{"path","name","depth","kind","value"}...]}: every object in depth-first
// order. Values: a step "on"/"off", an input/output "1"/"0", a result its number, tabs and managers
// the active child's name, a file collection "busy"/"idle", anything else "".
std::string ConsoleTree(const Workspace& workspace);

// {"type":"pages","items":[...],"parameters":[...]}: the property table's integer items (types 1
// to 3), each a range {"id","caption","kind":"range","min","max","value"} or an enumeration
// {"id","caption","kind":"enumeration","choices":[{"text","value"}...],"value"}, captions from the
// host's string table under the object's name; and the parameters {"index","name","type","value"},
// type one of integer, real, text, object, none.
std::string ConsolePages(IProtocolManager* object);

// Sets property item `id` to `value` (Control); false with `error` when the table refuses it or
// the value lies outside the item's range or choices.
bool ConsoleControl(IProtocolManager* object, int id, long long value, std::string& error);

// Sets parameter `index` to `text`, converted by the parameter's type (integer, real, text);
// false with `error` when there is no such parameter or the text does not convert.
bool ConsoleSetParameter(IProtocolManager* object, int index, const std::string& text, std::string& error);
