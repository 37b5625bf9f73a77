// Host addressing: the cost of the calls the platform makes at start-up and
// per call set-up (interface enumeration, route lookup, port hunt, address text).
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <sstream>
#include <vector>

#include <benchmark/benchmark.h>

#include "net/HostIPAddress.h"
#include "net/NetInterface.h"
#include "net/ResolverConfig.h"

namespace {

void HostIPAddressEnumeration(benchmark::State& state) {
    std::vector<ACE_INET_Addr> addresses;
    for (auto _ : state) benchmark::DoNotOptimize(Tarvik::getHostIPAddress(nullptr, addresses));
}
BENCHMARK(HostIPAddressEnumeration);

void InterfaceForLoopbackDestination(benchmark::State& state) {
    Tarvik::Net::Interface intf;
    for (auto _ : state) benchmark::DoNotOptimize(intf.getForDestination("127.0.0.1"));
}
BENCHMARK(InterfaceForLoopbackDestination);

void ResolverConfigRead(benchmark::State& state) {
    Tarvik::Net::ResolverConfig config;
    for (auto _ : state) benchmark::DoNotOptimize(Tarvik::Net::readResolverConfig(config));
}
BENCHMARK(ResolverConfigRead);

void IPAddressWriteRead(benchmark::State& state) {
    Tarvik::Net::IPAddress address(0xC0A80114);
    address.set_port_number(5060);
    for (auto _ : state) {
        std::stringstream stream;
        address.write(stream);
        address.read(stream);
        benchmark::DoNotOptimize(address);
    }
}
BENCHMARK(IPAddressWriteRead);

// A hunt that finds its port after state.range(0) ports in use.
void PortHuntPastPortsInUse(benchmark::State& state) {
    const int inUse = static_cast<int>(state.range(0));
    const int base = 33000 + static_cast<int>(getpid() % 100) * 40;
    std::vector<int> held;
    for (int port = base; port < base + inUse; ++port) {
        const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        held.push_back(fd);
    }
    for (auto _ : state) {
        const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        benchmark::DoNotOptimize(Tarvik::Net::findFreeIPPortHunt(reinterpret_cast<void*>(static_cast<intptr_t>(fd)),
                                                                 base, base + 39, base));
        ::close(fd);
    }
    for (int fd : held) ::close(fd);
}
BENCHMARK(PortHuntPastPortsInUse)->Arg(0)->Arg(30);

}  // namespace
