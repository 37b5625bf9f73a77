// The parameter database: every configuration parameter a library reads is
// registered here once, with its type, optional default and description.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace Tarvik {

enum ParameterType : int {
    PARAM_TYPE_TEXT = 1,
    PARAM_TYPE_INTEGER = 2,
    PARAM_TYPE_BOOLEAN = 4
};

struct ParameterInfo {
    std::string name;          // e.g. "corvane.net.HostNameServer.numThread"
    int type = PARAM_TYPE_TEXT;  // one of ParameterType
    bool hasDefault = false;   // true when a default text was registered
    std::string defaultValue;  // the registered default; meaningful only when hasDefault
    bool flags[3] = {false, false, false};  // registration flags, kept as given
    std::string description;   // text shown to people
};

// The name of a parameter type: "text", "integer" or "boolean".
const char* getParameterTypeName(int in_iType);

class ParameterInfoDB {
public:
    static ParameterInfoDB& getNonConstInstance();
    static const ParameterInfoDB& getInstance() { return getNonConstInstance(); }

    // Registers a parameter; a null default means none. A name registered twice
    // throws Tarvik::Exception naming it.
    void registerParameter(const char* in_szName, int in_iType, const char* in_szDefault,
                           bool in_bFlag1, bool in_bFlag2, bool in_bFlag3,
                           const char* in_szDescription);

    // Copies the parameter's registration into out_info; false when unknown.
    bool find(const std::string& in_strName, ParameterInfo& out_info) const;
    // Every registered parameter, in registration order.
    std::vector<ParameterInfo> list() const;

private:
    ParameterInfoDB() = default;
    mutable std::mutex m_mutex;               // guards m_parameters
    std::vector<ParameterInfo> m_parameters;  // in registration order
};

// Checks a text against a parameter type; false with a reason when it does not fit.
bool checkParameterValue(int in_iType, const std::string& in_strValue, std::string& out_strReason);

}  // namespace Tarvik
