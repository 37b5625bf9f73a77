// The questions of any DNS message, shown as the resolver logs them (the header codes: DnsAnswerFuzz).
#include <cstdint>
#include <string>

#include "platform/Ares.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 12 || size > 65535) return 0;
    unsigned questions = (static_cast<unsigned>(data[4]) << 8) | data[5];
    for (const unsigned char* aptr = data + 12; aptr != nullptr && questions > 0; --questions) {
        std::string name, text;
        aptr = Tarvik::Ares::display_question(aptr, data, static_cast<int>(size), name, text);
    }
    return 0;
}
