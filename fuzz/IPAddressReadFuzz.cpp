// IPAddress::read on any bytes: a failed read leaves the address as it was; a
// read address writes a text that reads back the same; every successful read
// consumes input, so a read loop always ends.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "net/NetInterface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto written = [](const Tarvik::Net::IPAddress& in_address) {
        std::ostringstream os;
        in_address.write(os);
        return os.str();
    };
    std::istringstream is(std::string(reinterpret_cast<const char*>(data), size));
    Tarvik::Net::IPAddress address(0x01020304);
    for (size_t i = 0; i <= size; ++i) {
        const std::string before = written(address);
        const std::streampos start = is.tellg();
        address.read(is);
        if (is.fail()) {
            if (written(address) != before) std::abort();
            break;
        }
        if ((is.eof() ? std::streampos(static_cast<std::streamoff>(size)) : is.tellg()) <= start) std::abort();
        std::stringstream again(written(address));
        Tarvik::Net::IPAddress copy(0x05060708);
        copy.read(again);
        if (again.fail() || copy.get_ip_address() != address.get_ip_address() ||
            copy.get_port_number() != address.get_port_number()) {
            std::abort();
        }
    }
    return 0;
}
