#include "net/SipRecordCache.h"

namespace Tarvik {
namespace Net {

SipRecordCache::SipRecordCache(size_t in_uiMaxEntries) : m_uiMaxEntries(in_uiMaxEntries) {}

SipRecordCache::Found SipRecordCache::lookup(std::string_view in_name, uint16_t in_uiType, Time in_now,
                                             SipDns::RecordSetPtr& out_records, uint32_t& out_uiSecondsLeft) {
    std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_index.find(Key{in_name, in_uiType});
    if (found == m_index.end()) return MISS;
    const Lru::iterator entry = found->second;
    if (in_now >= entry->expiry) {
        m_index.erase(found);
        m_lru.erase(entry);
        return MISS;
    }
    if (entry != m_lru.begin()) m_lru.splice(m_lru.begin(), m_lru, entry);
    out_records = entry->records;
    out_uiSecondsLeft = static_cast<uint32_t>((entry->expiry - in_now) / 1000000);
    return entry->records->kind == SipDns::RecordSet::RECORDS ? HIT : NEGATIVE_HIT;
}

size_t SipRecordCache::store(std::string_view in_name, uint16_t in_uiType, const SipDns::RecordSetPtr& in_records,
                             Time in_now) {
    std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_index.find(Key{in_name, in_uiType});
    if (found != m_index.end()) {
        const Lru::iterator entry = found->second;
        if (in_records->ttl > 0 && m_uiMaxEntries > 0) {
            entry->records = in_records;
            entry->expiry = in_now + static_cast<Time>(in_records->ttl) * 1000000;
            if (entry != m_lru.begin()) m_lru.splice(m_lru.begin(), m_lru, entry);
            return 0;
        }
        m_index.erase(found);
        m_lru.erase(entry);
        return 0;
    }
    if (in_records->ttl == 0 || m_uiMaxEntries == 0) return 0;
    const size_t evicted = evictTo(m_uiMaxEntries - 1);
    m_lru.push_front(Entry{std::string(in_name), in_uiType, in_now + static_cast<Time>(in_records->ttl) * 1000000,
                           in_records});
    m_index.emplace(Key{m_lru.front().name, in_uiType}, m_lru.begin());
    return evicted;
}

size_t SipRecordCache::setMaxEntries(size_t in_uiMaxEntries) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_uiMaxEntries = in_uiMaxEntries;
    return evictTo(in_uiMaxEntries);
}

size_t SipRecordCache::getMaxEntries() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_uiMaxEntries;
}

size_t SipRecordCache::size() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lru.size();
}

void SipRecordCache::clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_index.clear();
    m_lru.clear();
}

size_t SipRecordCache::evictTo(size_t in_uiLimit) {
    size_t evicted = 0;
    while (m_lru.size() > in_uiLimit) {
        const Entry& last = m_lru.back();
        m_index.erase(Key{last.name, last.type});
        m_lru.pop_back();
        ++evicted;
    }
    return evicted;
}

}  // namespace Net
}  // namespace Tarvik
