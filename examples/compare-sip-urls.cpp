// Decodes URLs with the URL model, prints the parts of each SIP URL, and says
// whether the first URL equals each of the others (SIP comparison: scheme and
// host ignore case, an absent port equals 5060, an absent transport "udp").
//
//   compare-sip-urls URL URL...
//   compare-sip-urls 'sip:alice@example.com' 'SIP:alice@EXAMPLE.COM:5060'
#include <iostream>
#include <string>
#include <vector>

#include "vocal/BaseUrl.h"
#include "vocal/SipUrl.h"
#include "vocal/VException.h"

int main(int argc, char** argv) {
    std::vector<Vocal::CountedPtr<Vocal::BaseUrl>> urls;
    for (int i = 1; i < argc; ++i) {
        try {
            // decode picks the class by the scheme: SipUrl, TelUrl, ImUrl, PresUrl or UnknownUrl.
            urls.push_back(Vocal::BaseUrl::decode(Vocal::TextBuffer(argv[i])));
        } catch (const VException& e) {
            // The parsers throw on a text they reject.
            std::cerr << argv[i] << ": " << e.getName() << ": " << e.getDescription() << '\n';
            return 1;
        }
        const Vocal::BaseUrl& url = *urls.back();
        std::cout << argv[i] << ": " << Vocal::getUrlTypeName(url.getType());
        if (const auto* pSip = dynamic_cast<const Vocal::SipUrl*>(&url)) {
            std::cout << " user=" << pSip->getUserValue().toString() << " host=" << pSip->getHost().toString()
                      << " port=" << pSip->getPort().toString()
                      << " transport=" << pSip->getTransportParam().toString();
        }
        std::cout << " -> " << url.toString() << '\n';
    }
    for (size_t i = 1; i < urls.size(); ++i) {
        std::cout << urls[0]->toString() << (urls[0]->areEqual(urls[i]) ? " == " : " != ")
                  << urls[i]->toString() << '\n';
    }
    return urls.size() < 2 ? 2 : 0;
}
