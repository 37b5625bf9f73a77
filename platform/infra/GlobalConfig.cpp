#include "platform/GlobalConfig.h"

#include <cstdlib>

#include "platform/ParameterInfoDB.h"

namespace Tarvik {

bool ROConfiguration::getValue(const std::string& in_strName, std::string& out_strValue) const {
    auto it = m_values.find(in_strName);
    if (it != m_values.end()) {
        out_strValue = it->second;
        return true;
    }
    ParameterInfo info;
    if (ParameterInfoDB::getInstance().find(in_strName, info) && info.hasDefault) {
        out_strValue = info.defaultValue;
        return true;
    }
    return false;
}

bool ROConfiguration::getInteger(const std::string& in_strName, long& out_lValue) const {
    std::string text;
    std::string reason;
    if (!getValue(in_strName, text) || !checkParameterValue(PARAM_TYPE_INTEGER, text, reason)) return false;
    out_lValue = std::strtol(text.c_str(), nullptr, 10);
    return true;
}

bool ROConfiguration::getBoolean(const std::string& in_strName, bool& out_bValue) const {
    std::string text;
    std::string reason;
    if (!getValue(in_strName, text) || !checkParameterValue(PARAM_TYPE_BOOLEAN, text, reason)) return false;
    out_bValue = text == "true";
    return true;
}

GlobalConfig& GlobalConfig::getInstance() {
    static GlobalConfig* s_pConfig = new GlobalConfig;  // lives for the process
    return *s_pConfig;
}

TSHandle<ROConfiguration> GlobalConfig::getConfig() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_snapshot.isNull()) {
        m_snapshot =
            TSHandle<ROConfiguration>(std::make_shared<ROConfiguration>(m_values));
    }
    return m_snapshot;
}

bool GlobalConfig::setValue(const std::string& in_strName, const std::string& in_strValue,
                            std::string& out_strError) {
    ParameterInfo info;
    if (!ParameterInfoDB::getInstance().find(in_strName, info)) {
        out_strError = "unknown parameter " + in_strName;
        return false;
    }
    std::string reason;
    if (!checkParameterValue(info.type, in_strValue, reason)) {
        out_strError = "bad value for parameter " + in_strName + " (" +
                       getParameterTypeName(info.type) + "): " + reason;
        return false;
    }
    std::lock_guard<std::mutex> guard(m_mutex);
    m_values[in_strName] = in_strValue;
    m_snapshot = TSHandle<ROConfiguration>();
    return true;
}

void GlobalConfig::clearValue(const std::string& in_strName) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_values.erase(in_strName);
    m_snapshot = TSHandle<ROConfiguration>();
}

void GlobalConfig::clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_values.clear();
    m_snapshot = TSHandle<ROConfiguration>();
}

}  // namespace Tarvik
