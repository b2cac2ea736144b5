// The files that keep a protocol object's settings: the state file (the whole object, in the
// folder stream's text form, host/components/FolderStream.h) and the parameters as XML
// (host/components/XmlStream.h), for people who edit them by hand.
#pragma once

#include <string>
#include <vector>

#include "module/interfaces/All.h"

class CStateFile {
public:
    // `path` is made absolute here, against the current directory.
    explicit CStateFile(const std::string& path);
    const std::string& Path() const { return m_Path; }

    // Loads `object` (through IDataPersist) from the file. A missing file leaves the object as it
    // is and succeeds; a file that cannot be read, is not a state file or cannot be loaded gives
    // false and `problem`, and the file stays as it is.
    bool Load(IUnknown* object, std::string& problem);
    // The entries of the file the object left unread when it loaded (a misspelt name, say), as
    // paths in UTF-8: they are not saved again.
    const std::vector<std::string>& Unread() const { return m_Unread; }
    // Saves `object` into a new folder stream and, when its text differs from the file's last
    // known content, replaces the file (ReplaceFile, host/app/Files.h). False and `problem` when
    // the object cannot be saved or the file cannot be replaced.
    bool Save(IUnknown* object, std::string& problem);
    // Whether the file could be saved now (CanReplaceFile); nothing is written.
    bool CanSave(std::string& problem) const;

private:
    std::string m_Path;
    std::string m_Last;  // the file's content as last read or written
    bool m_Known = false;
    std::vector<std::string> m_Unread;
};

// The parameters of `object` (its parameter collection's XML slots) to or from the XML file at
// `path`. Exporting writes the compact value form; importing updates the parameters the document
// names and skips, and lists in `skipped`, the names the object does not have. False and `problem`
// on failure. An export that holds control characters XML 1.0 has no place for (written as
// references, which this host reads back but other XML tools refuse) or characters it cannot hold
// at all says so in `warning`.
bool ExportParametersXml(IUnknown* object, const std::string& path, std::string& problem, std::string& warning);
bool ImportParametersXml(IUnknown* object, const std::string& path, std::string& problem,
                         std::vector<std::string>& skipped);
