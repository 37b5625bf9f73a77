// This host's DNS servers.
#pragma once

#include "platform/StringVector.h"

namespace Tarvik {
namespace Net {

// Appends the host's DNS server addresses (dotted texts, primary first) to
// out_servers. Only a null adapter name is supported.
bool getAdapterDNSServers(StringVector& out_servers, const char* in_szAdapterName);

}  // namespace Net
}  // namespace Tarvik
