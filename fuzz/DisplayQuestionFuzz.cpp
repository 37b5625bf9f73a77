// Reads the input as a DNS message, as the resolver logs an answer: the header's codes through the
// name tables, then its questions.
#include <cstdint>
#include <string>

#include "platform/Ares.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 12 || size > 65535) return 0;
    std::string codes = std::string(Tarvik::Ares::opcodes[(data[2] >> 3) & 0xF]) + Tarvik::Ares::rcodes[data[3] & 0xF];
    const unsigned qdcount = (static_cast<unsigned>(data[4]) << 8) | data[5];
    const unsigned char* aptr = data + 12;
    for (unsigned i = 0; i < qdcount && aptr != nullptr; ++i) {
        std::string name, text;
        const unsigned char* next = Tarvik::Ares::display_question(aptr, data, static_cast<int>(size), name, text);
        if (next != nullptr && (next <= aptr || next > data + size || text.size() < name.size())) __builtin_trap();
        aptr = next;
    }
    return codes.empty() ? 1 : 0;
}
