// IPAddress::read on any bytes: a failed read leaves the address as it was; a read address writes a
// text that reads back the same; every successful read consumes input, so a read loop always ends.
#include <cstdint>
#include <sstream>
#include <string>

#include "net/NetInterface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream is(std::string(reinterpret_cast<const char*>(data), size));
    Tarvik::Net::IPAddress address(0x01020304);
    for (size_t reads = 0; reads <= size; ++reads) {
        std::ostringstream before;
        address.write(before);
        const std::streamsize left = is.rdbuf()->in_avail();
        address.read(is);
        std::stringstream after;
        address.write(after);
        if (is.fail() && after.str() != before.str()) __builtin_trap();
        if (is.fail()) return 0;
        Tarvik::Net::IPAddress copy(0x05060708);
        copy.read(after);
        const bool same = copy.get_ip_address() == address.get_ip_address() &&
                          copy.get_port_number() == address.get_port_number();
        if (after.fail() || !same || is.rdbuf()->in_avail() >= left) __builtin_trap();
    }
    __builtin_trap();  // more reads than bytes
}
