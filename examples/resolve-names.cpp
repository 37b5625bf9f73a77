// Resolves host names through the library's resolver, giving up on each after a
// time-out, then canonicalises a SIP URI (its host becomes the address it
// resolves to, and a missing port becomes 5060).
//
//   resolve-names [--timeout MS] NAME... [--uri URI]
//   resolve-names --timeout 500 localhost 127.0.0.1 --uri sip:alice@localhost
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <ace/Time_Value.h>

#include "net/HostNameServer.h"
#include "net/Hostent.h"
#include "net/Net.h"
#include "net/Uri.h"

int main(int argc, char** argv) {
    long timeoutMs = 2000;
    std::vector<std::string> names;
    std::string uri;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--timeout" && i + 1 < argc) {
            timeoutMs = std::strtol(argv[++i], nullptr, 10);
        } else if (arg == "--uri" && i + 1 < argc) {
            uri = argv[++i];
        } else {
            names.push_back(arg);
        }
    }

    // The resolver runs on threads of its own: start it once per process.
    if (!Tarvik::Net::initializeLibrary()) {
        std::cerr << "the library could not be started\n";
        return 1;
    }
    const ACE_Time_Value timeout(timeoutMs / 1000, (timeoutMs % 1000) * 1000);
    int status = 0;
    for (const std::string& name : names) {
        Tarvik::Hostent hostent;
        Tarvik::Hostent::GetHostByNameStatus result = Tarvik::Hostent::GHBN_OTHER_ERROR;
        // Waits at most `timeout`; the last argument lets the answer come from the cache.
        const bool ok = Tarvik::HostNameServer::getInstance().resolve(name.c_str(), hostent, result, timeout, true);
        std::cout << name << ": " << Tarvik::Hostent::getGetHostByNameStatusString(result);
        for (size_t i = 0; ok && i < hostent.getNumAddress(); ++i) {
            std::string address;
            if (hostent.getAddress(i, address)) std::cout << ' ' << address;
        }
        std::cout << '\n';
        if (!ok) status = 1;
    }
    if (!uri.empty()) {
        std::string canonical;
        const bool ok = Tarvik::canonicalizeURI(uri, canonical, timeout);
        std::cout << uri << " -> " << canonical << (ok ? "" : " (not canonicalised)") << '\n';
        if (!ok) status = 1;
    }
    // Stops the resolver and waits for its threads.
    Tarvik::Net::forcedCloseLibrary();
    return status;
}
