#include "host/app/ObjectFiles.h"

#include <cstdlib>

#include "host/kit/Files.h"
#include "host/collections/HostString.h"
#include "host/components/FolderStream.h"
#include "host/components/XmlStream.h"
#include "host/workspace/WorkspaceObject.h"
#include "module/SmartPtr.h"

namespace {

constexpr int32_t kCompact = 0x800000;

// The persistence slots of the object's parameter collection, which follow IParametersCreatable's.
SmartPtr<IParametersPersist> ParametersOf(IUnknown* object) {
    SmartPtr<IParametersCreatable> parameters = QueryAs<IParametersCreatable>(object, IID_IParametersCreatable);
    SmartPtr<IParametersPersist> persist;
    persist.Assign(static_cast<IParametersPersist*>(parameters.get()));
    return persist;
}

}  // namespace

CStateFile::CStateFile(const std::string& path) : m_Path(AbsolutePath(path)) {}

bool CStateFile::Load(IUnknown* object, std::string& problem) {
    std::string text;
    bool missing = false;
    if (!ReadWholeFile(m_Path, text, problem, &missing)) {
        if (!missing) return false;
        problem.clear();
        m_Known = false;  // the first save creates it
        return true;
    }
    SmartPtr<IFolderStream> folder(HOSTFolderStreamFromText(text, problem));
    if (!folder) return false;
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    if (!persist) return problem = "the object cannot be loaded", false;
    if (const HRESULT hr = persist->Load(folder.get(), 0); hr < 0)
        return problem = "the object refused the saved state (" + std::to_string(hr) + ")", false;
    // Shown one to a line: a control character in a hand-edited name is shown as "?".
    for (const std::wstring& path : HOSTFolderStreamUnread(folder.get())) m_Unread.push_back(WorkspaceNarrow(path));
    m_Last = std::move(text);
    m_Known = true;
    return true;
}

bool CStateFile::Save(IUnknown* object, std::string& problem) {
    SmartPtr<IDataPersist> persist = QueryAs<IDataPersist>(object, IID_IDataPersist);
    SmartPtr<IFolderStream> folder(HOSTNewFolderStream());
    if (!persist || !folder) return problem = "cannot save the object", false;
    // The protocol object reports "not implemented" even after a complete save: its result says nothing.
    persist->Save(folder.get(), 0);
    std::string text;
    if (!HOSTFolderStreamToText(folder.get(), text)) return problem = "cannot write the saved state as text", false;
    if (m_Known && text == m_Last) return true;
    if (!ReplaceFile(m_Path, text, problem)) return false;
    m_Last = std::move(text);
    m_Known = true;
    return true;
}

bool CStateFile::CanSave(std::string& problem) const { return CanReplaceFile(m_Path, problem); }

bool ExportParametersXml(IUnknown* object, const std::string& path, std::string& problem, std::string& warning) {
    SmartPtr<IParametersPersist> parameters = ParametersOf(object);
    SmartPtr<IXMLStream> stream(HOSTNewXMLStream());
    if (!parameters || !stream) return problem = "cannot save the parameters", false;
    parameters->Params_SaveXML(stream.get(), kCompact);
    std::string text;
    size_t replaced = 0;
    if (!HOSTXMLStreamToText(stream.get(), text, &replaced))
        return problem = "cannot write the parameters as XML", false;
    if (replaced > 0)
        warning = std::to_string(replaced) + (replaced == 1 ? " character" : " characters") +
                  " that XML cannot hold (such as U+0000) written as U+FFFD: the file does not read back as the "
                  "object holds it";
    // Control characters other than tab and the line ends are written as references ("&#01;"):
    // XML 1.0 allows them in no form.
    size_t line = 1;
    for (size_t at = 0; at < text.size() && warning.empty(); ++at) {
        if (text[at] == '\n') ++line;
        const bool reference = text.compare(at, 2, "&#") == 0 && at + 2 < text.size() && text[at + 2] >= '0' &&
                               text[at + 2] <= '9';
        if (!reference) continue;
        const long code = std::strtol(text.c_str() + at + 2, nullptr, 10);
        if (code < 32 && code != 9 && code != 10 && code != 13)
            warning = "line " + std::to_string(line) + " holds a control character (" + std::to_string(code) +
                      ") that XML 1.0 does not allow: it is written as a reference, which wks-host reads back but "
                      "other XML tools refuse";
    }
    return ReplaceFile(AbsolutePath(path), text, problem);
}

bool ImportParametersXml(IUnknown* object, const std::string& path, std::string& problem,
                         std::vector<std::string>& skipped) {
    std::string text;
    if (!ReadWholeFile(path, text, problem)) return false;
    SmartPtr<IXMLStream> stream(HOSTXMLStreamFromText(text, problem));
    if (!stream) return false;
    SmartPtr<IParametersPersist> parameters = ParametersOf(object);
    SmartPtr<IParameters> names = QueryAs<IParameters>(object, IID_IParameters);
    if (!parameters || !names) return problem = "the object has no parameters", false;
    parameters->Params_LoadXML(stream.get(), 0, 0);
    // The elements that name no parameter were passed over: a hand-edited file may have misspelt
    // one. Listed from a stream of their own, so that the loading's cursor is left alone.
    SmartPtr<IXMLStream> listed(HOSTXMLStreamFromText(text, problem));
    tagREFString element{0, nullptr};
    while (listed && listed->NextElement(&element) >= 0) {
        SmartPtr<IString> name(HOSTNewString(element.text, element.length));
        int32_t index = -1;
        if (name && names->get_Index(name.get(), &index) >= 0) continue;
        skipped.push_back(WorkspaceNarrow(std::wstring(element.text, static_cast<size_t>(element.length))));
    }
    return true;
}
