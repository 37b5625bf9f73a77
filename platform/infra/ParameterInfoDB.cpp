#include "platform/ParameterInfoDB.h"

#include <cerrno>
#include <cstdlib>

#include "platform/Exception.h"

namespace Tarvik {

const char* getParameterTypeName(int in_iType) {
    switch (in_iType) {
        case PARAM_TYPE_TEXT: return "text";
        case PARAM_TYPE_INTEGER: return "integer";
        case PARAM_TYPE_BOOLEAN: return "boolean";
        default: return "unknown";
    }
}

ParameterInfoDB& ParameterInfoDB::getNonConstInstance() {
    static ParameterInfoDB* s_pDB = new ParameterInfoDB;  // lives for the process
    return *s_pDB;
}

void ParameterInfoDB::registerParameter(const char* in_szName, int in_iType, const char* in_szDefault,
                                        bool in_bFlag1, bool in_bFlag2, bool in_bFlag3,
                                        const char* in_szDescription) {
    std::lock_guard<std::mutex> guard(m_mutex);
    for (const ParameterInfo& info : m_parameters) {
        if (info.name == in_szName) {
            throw Exception(std::string("parameter ") + in_szName + " is already registered");
        }
    }
    ParameterInfo info;
    info.name = in_szName;
    info.type = in_iType;
    info.hasDefault = in_szDefault != nullptr;
    info.defaultValue = in_szDefault ? in_szDefault : "";
    info.flags[0] = in_bFlag1;
    info.flags[1] = in_bFlag2;
    info.flags[2] = in_bFlag3;
    info.description = in_szDescription ? in_szDescription : "";
    m_parameters.push_back(info);
}

bool ParameterInfoDB::find(const std::string& in_strName, ParameterInfo& out_info) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    for (const ParameterInfo& info : m_parameters) {
        if (info.name == in_strName) {
            out_info = info;
            return true;
        }
    }
    return false;
}

std::vector<ParameterInfo> ParameterInfoDB::list() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_parameters;
}

bool checkParameterValue(int in_iType, const std::string& in_strValue, std::string& out_strReason) {
    if (in_iType == PARAM_TYPE_INTEGER) {
        if (in_strValue.empty()) {
            out_strReason = "an integer is expected, the value is empty";
            return false;
        }
        errno = 0;
        char* pEnd = nullptr;
        std::strtol(in_strValue.c_str(), &pEnd, 10);
        if (*pEnd != '\0' || errno == ERANGE) {
            out_strReason = "an integer is expected, not \"" + in_strValue + "\"";
            return false;
        }
    } else if (in_iType == PARAM_TYPE_BOOLEAN) {
        if (in_strValue != "true" && in_strValue != "false") {
            out_strReason = "true or false is expected, not \"" + in_strValue + "\"";
            return false;
        }
    }
    return true;
}

}  // namespace Tarvik
