// wks-host: loads WKSProtocol.so as a host does, binds it to a workspace and runs a session on
// standard input. Each line read is one message; each reply is written on a line of its own;
// "?" answers a failed command; a message beginning with "Break" ends the session.
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "host/kit/ModuleHost.h"
#include "host/workspace/Workspace.h"

namespace {

const char kUsage[] =
    "usage: wks-host [--workspace FILE] [--verbose] [--prompt | --no-prompt]\n"
    "\n"
    "Loads ./WKSProtocol.so from the program's folder, binds a WKSProtocol object to a workspace\n"
    "and runs a session on standard input: every line is one message, every reply is printed on a\n"
    "line of its own, \"?\" answers a failed command, and a line beginning with \"Break\" ends the\n"
    "session.\n"
    "\n"
    "  --workspace FILE  the workspace to serve, in TOML (default: the built-in sample; see\n"
    "                    host/workspace/sample.toml for the format)\n"
    "  --verbose         print every call a workspace object receives on standard error\n"
    "  --prompt          show the prompt \"> \" when a message is done (default: only on a terminal,\n"
    "                    and only while the object's UsePrompt setting is on)\n"
    "  --no-prompt       never show the prompt\n"
    "  --help            this text\n";

}  // namespace

int main(int argc, char** argv) {
    std::string workspaceFile;
    bool verbose = false;
    int prompt = -1;  // -1: decided by the terminal
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--workspace" && i + 1 < argc) {
            workspaceFile = argv[++i];
        } else if (arg == "--verbose") {
            verbose = true;
        } else if (arg == "--prompt") {
            prompt = 1;
        } else if (arg == "--no-prompt") {
            prompt = 0;
        } else {
            std::fprintf(stderr, "wks-host: unknown option '%s'\n\n%s", arg.c_str(), kUsage);
            return 2;
        }
    }
    std::setlocale(LC_ALL, "");  // the host owns the locale; the module decodes under it

    std::string text = WorkspaceSample();
    std::string source = "built-in workspace";
    if (!workspaceFile.empty()) {
        std::ifstream file(workspaceFile);
        if (!file) {
            std::fprintf(stderr, "wks-host: cannot read workspace file '%s'\n", workspaceFile.c_str());
            return 1;
        }
        std::stringstream content;
        content << file.rdbuf();
        text = content.str();
        source = workspaceFile;
    }
    Workspace workspace;
    workspace.log.echo = verbose;
    std::string error;
    if (!WorkspaceLoad(text, source, workspace, error)) {
        std::fprintf(stderr, "wks-host: %s\n", error.c_str());
        return 1;
    }

    // The module finds ./CollectionsEx.so relative to the current directory: move beside it.
    const std::string folder = HOSTProgramFolder();
    if (folder.empty() || !HOSTChangeToFolderOf(folder)) {
        std::fprintf(stderr, "wks-host: cannot find the program's folder\n");
        return 1;
    }
    CModuleHost host;
    if (!host.Load("./WKSProtocol.so", error)) {
        std::fprintf(stderr, "wks-host: %s\n", error.c_str());
        return 1;
    }
    SmartPtr<INamedCollection> names = QueryAs<INamedCollection>(workspace.table.get(), IID_INamedCollection);
    CProtocolSession session;
    if (const HRESULT hr = session.Open(host, names.get()); hr != S_OK) {
        std::fprintf(stderr, "wks-host: the WKSProtocol object could not be created and bound (0x%08X)\n",
                     static_cast<unsigned>(hr));
        return 1;
    }
    SmartPtr<IUIPropInterrogate> settings = QueryAs<IUIPropInterrogate>(session.Manager(), IID_IUIPropInterrogate);

    const bool terminal = isatty(STDIN_FILENO) != 0;
    auto showPrompt = [&]() {
        int32_t usePrompt = 0;
        if (settings) settings->Inquire(1, &usePrompt);
        if (usePrompt && (prompt == 1 || (prompt == -1 && terminal))) {
            std::fputs("> ", stdout);
            std::fflush(stdout);
        }
    };

    showPrompt();
    std::string line;
    while (std::getline(std::cin, line)) {
        const HRESULT received = session.Exchange(line.data(), line.size(), [](const unsigned char* reply, int32_t length) {
            std::fwrite(reply, 1, static_cast<size_t>(length), stdout);
            std::fputc('\n', stdout);
        });
        if (received == E_BREAK) break;
        std::fflush(stdout);
        showPrompt();
    }

    settings.Reset();
    session.Close();
    names.Reset();
    workspace.table.Reset();
    return 0;  // the host lets the module go of its collection; the module file stays loaded
}
