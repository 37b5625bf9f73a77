// BaseUrl::decode against the URL parsers of sofia-sip (url_make + su_free) and
// osip2 (osip_uri_init + osip_uri_parse + osip_uri_free) on the same corpus:
// short, typical and long SIP URLs with parameters, telephone numbers, IPv6
// hosts, TEL, IM and presence URLs. Each iteration decodes and frees one URL,
// taking the corpus in turn, so the figures are per URL.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "vocal/BaseUrl.h"

#ifdef CORVANE_HAVE_SOFIA
#include <sofia-sip/su_alloc.h>
#include <sofia-sip/url.h>
#endif
#ifdef CORVANE_HAVE_OSIP2
#include <osipparser2/osip_uri.h>
#endif

namespace {

const char* const kCorpus[] = {
    "sip:alice@atlanta.example.com;transport=tcp;maddr=198.51.100.7",
    "sip:bob@biloxi.example.com:5060;transport=udp;maddr=192.0.2.201;ttl=16",
    "sip:carol@chicago.example.com;transport=tcp;maddr=10.20.30.40;ttl=16;method=SUBSCRIBE",
    "sip:alice@pc33.atlanta.example.com:5061;transport=tls;maddr=edge1.atlanta.example.com;lr",
    "sip:+14085551234@gateway.example.net;user=phone;transport=udp;isub=4411;postd=pp22",
    "sip:+1-408-555-1234;isub=1411;postd=pp22@gw1.carrier.example.net:5060;user=phone;transport=udp",
    "sip:voicemail@[2001:db8:85a3::8a2e:370:7334]:5070;transport=tcp;method=INVITE;lr",
    "sip:proxy1.core.example.org:5060;transport=tcp;maddr=proxy1-int.core.example.org;lr",
    "sip:registrar.example.com;transport=udp;ttl=15;maddr=239.255.255.1;method=REGISTER",
    "sip:alice:secretword@atlanta.example.com:5060;transport=tcp;maddr=192.0.2.10?subject=project%20x&priority=urgent",
    "sip:bob@192.0.2.4:5060;transport=udp;user=ip;method=OPTIONS;ttl=1;lr",
    "sip:conference-room-42@conf.media.example.com:5060;transport=tcp;user=ip;x-session=7a3f9c2e1b",
    "sip:%61lice@atlanta.example.com;transport=TCP;maddr=atlanta-edge.example.com",
    "sip:[2001:db8::10]:5060;transport=udp;maddr=[2001:db8::1];lr",
    "tel:+1-201-555-0123;isub=1234;postd=pp22;phone-context=+1-201;tsp=gw7.example.com",
    "tel:7042;phone-context=example.com;isub=12;tsp=gw.example.com",
    "im:fred.flintstone@instant-messaging.bedrock-quarry.example.com",
    "pres:alice.liddell@presence-server.wonderland.example.com",
    "SIP:Long.User.Name-With.Dashes@sub.domain.of.a.very.long.hostname.example.com:5080;transport=sctp;lr",
    "sip:+33123456789@ims.mnc001.mcc208.3gppnetwork.org:5060;user=phone;transport=tcp;tag=a6c85cf;lr",
};
const size_t kCorpusSize = sizeof kCorpus / sizeof kCorpus[0];

void reportCorpus(benchmark::State& io_state) {
    size_t bytes = 0;
    for (const char* text : kCorpus) bytes += std::strlen(text);
    io_state.counters["urls"] = static_cast<double>(kCorpusSize);
    io_state.counters["avgBytes"] = static_cast<double>(bytes) / kCorpusSize;
}

void UrlDecode_corvane(benchmark::State& io_state) {
    std::vector<Vocal::TextBuffer> corpus(std::begin(kCorpus), std::end(kCorpus));
    size_t i = 0;
    for (auto _ : io_state) {
        Vocal::CountedPtr<Vocal::BaseUrl> url = Vocal::BaseUrl::decode(corpus[i]);
        benchmark::DoNotOptimize(url.get());
        if (++i == kCorpusSize) i = 0;
    }
    reportCorpus(io_state);
}
BENCHMARK(UrlDecode_corvane)->Name("UrlDecode/corvane");

#ifdef CORVANE_HAVE_SOFIA
void UrlDecode_sofia(benchmark::State& io_state) {
    su_home_t home[1] = {SU_HOME_INIT(home)};
    su_home_init(home);
    size_t i = 0;
    for (auto _ : io_state) {
        url_t* url = url_make(home, kCorpus[i]);
        benchmark::DoNotOptimize(url);
        su_free(home, url);
        if (++i == kCorpusSize) i = 0;
    }
    su_home_deinit(home);
    reportCorpus(io_state);
}
BENCHMARK(UrlDecode_sofia)->Name("UrlDecode/sofia");
#endif

#ifdef CORVANE_HAVE_OSIP2
void UrlDecode_osip2(benchmark::State& io_state) {
    size_t i = 0;
    for (auto _ : io_state) {
        osip_uri_t* url = nullptr;
        osip_uri_init(&url);
        benchmark::DoNotOptimize(osip_uri_parse(url, kCorpus[i]));
        osip_uri_free(url);
        if (++i == kCorpusSize) i = 0;
    }
    reportCorpus(io_state);
}
BENCHMARK(UrlDecode_osip2)->Name("UrlDecode/osip2");
#endif

}  // namespace
