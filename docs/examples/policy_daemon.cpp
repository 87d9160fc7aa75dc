// A daemon that answers each client of a Unix socket with the client's own identity: what policy holds for whoever
// asks.
//
//   policy_daemon SOCKET          one question a connection: the name of an item, in UTF-8, and the end of the line
//
// The system says who is at the other end; the daemon declares that for the length of the call, and the component takes
// the identity on where it needs one. Run as root, since a user's policy is readable by that user and root alone.
#include <orvantis/ServerInfo.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Home.h"

namespace {

// The answer to one question, asked for the caller whom the host has declared.
std::string Ask(IOVServerInfo& server, const std::string& name) {
    WCHAR wide[512] = {};
    if (!MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name.c_str(), -1, wide, 512)) return "no name\n";
    OV_SERVER_INFO_EX record = {wide, OV_QUERY, {}};
    HRESULT hr = server.GetInfo(1, &record);
    if (SUCCEEDED(hr)) hr = record.hr;
    char part[32];
    if (FAILED(hr)) {
        std::snprintf(part, sizeof part, "0x%08X\n", static_cast<unsigned>(hr));
        return part;
    }
    std::string line = hr == S_OK ? "managed" : "local";
    const OV_SERVER_VALUE& value = record.value;
    const DWORD elements = value.type == OV_TYPE_ARRAY ? static_cast<DWORD>(value.data) : 0;
    for (DWORD i = 0; i < elements; ++i) {
        std::snprintf(part, sizeof part, " 0x%016llX", value.items[i].data);
        line += part;
    }
    if (value.type == OV_TYPE_DWORD) line += " " + std::to_string(static_cast<DWORD>(value.data));
    OvFreeServerValue(value);
    return line + "\n";
}

void Serve(IOVServerInfo& server, int client) {
    const timeval patience = {2, 0};  // a client that says nothing keeps the others waiting no longer
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    char question[512] = {};
    const ssize_t got = read(client, question, sizeof question - 1);
    if (got <= 0) return;
    question[strcspn(question, "\n")] = 0;
    // From here to the end the call is the client's.
    if (OvBeginCallOfPeer(client) != ERROR_SUCCESS) return;
    const std::string answer = Ask(server, question);
    OvEndCall();
    // One that has gone by now is no reason to end.
    if (send(client, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) std::perror("answer");
}

int Listen(const char* path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(path);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
    chmod(path, 0666);  // everybody may ask
    return listen(listener, 16) == 0 ? listener : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const HMODULE module = LoadLibraryW(OV_TEXT("OvSvInfo"));
    const auto getClassObject =
        reinterpret_cast<LPFNGETCLASSOBJECT>(reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    IClassFactory* factory = nullptr;
    IOVServerInfo* server = nullptr;
    if (!getClassObject ||
        FAILED(getClassObject(CLSID_ServerInfo, IID_IClassFactory, reinterpret_cast<void**>(&factory))) ||
        FAILED(factory->CreateInstance(nullptr, IID_IOVServerInfo, reinterpret_cast<void**>(&server)))) {
        return 1;
    }
    factory->Release();
    const int listener = Listen(argv[1]);
    if (listener < 0) {
        std::perror(argv[1]);
        return 1;
    }
    for (;;) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        Serve(*server, client);
        close(client);
    }
}
