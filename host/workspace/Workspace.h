// A workspace of objects described in TOML, and its running object table.
//
// Schema: every `[[object]]` is an entry of the running object table; `children` (an array of
// tables, `[[object.children]]`) nests objects inside it. Keys of an object:
//   name      (required) the name commands use
//   kind      container | step | io | result | toolbar | button | tabs | manager | managers |
//             moniker | files | search            (default: container)
//   state     initial state of a step or io (0/1), or the active index of tabs and managers
//   value     a result's value (number)
//   id        a button's id (integer)
//   selector  tabs only: true gives the tab collection a folder selector (the active tab)
//   busy_ms   files only: how long the collection stays busy after loading (milliseconds)
//   target    moniker only: the name of the top-level object the moniker stands for
//   parameters  a table of name = value: the object's own parameter collection (integers get
//             type 3, reals type 5, texts type 6)
#pragma once

#include <string>

#include "host/workspace/WorkspaceObject.h"

struct Workspace {
    SmartPtr<IRunningObjectTableEx> table;  // also answers INamedCollection
    WorkspaceLog log;

    CWorkspaceObject* Root() const { return static_cast<CWorkspaceObject*>(table.get()); }
    // The object at a path of top-level and child names separated by ".", or null.
    CWorkspaceObject* Find(const std::wstring& path) const;
};

// Builds `out` from TOML `text`. On failure returns false and sets `error` to
// "<source>:<line>: <problem>".
bool WorkspaceLoad(const std::string& text, const std::string& source, Workspace& out, std::string& error);

// The built-in sample workspace, in the same TOML form (host/workspace/sample.toml holds a copy).
const char* WorkspaceSample();
