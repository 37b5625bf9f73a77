// The process-wide configuration: parameter values set by the process, read
// through a counted read-only handle. A parameter without an explicit value
// yields its registered default.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Tarvik {

// A counted handle on a shared, thread-safe object; null is a valid value.
template <class T>
class TSHandle {
public:
    TSHandle() = default;
    explicit TSHandle(std::shared_ptr<T> in_p) : m_p(std::move(in_p)) {}
    template <class U>
    TSHandle(const TSHandle<U>& in_other) : m_p(in_other.getShared()) {}  // NOLINT: upcast

    bool isNull() const { return !m_p; }
    T* operator->() const { return m_p.get(); }
    T& operator*() const { return *m_p; }
    const std::shared_ptr<T>& getShared() const { return m_p; }

private:
    std::shared_ptr<T> m_p;  // the object; its count is thread-safe
};

// An immutable view of parameter values.
class ROConfiguration {
public:
    explicit ROConfiguration(std::map<std::string, std::string> in_values)
        : m_values(std::move(in_values)) {}
    virtual ~ROConfiguration() = default;

    // The text of a parameter (explicit value, else registered default); false when it has none.
    bool getValue(const std::string& in_strName, std::string& out_strValue) const;
    bool getString(const std::string& in_strName, std::string& out_strValue) const {
        return getValue(in_strName, out_strValue);
    }
    // False when the parameter has no value or its text is not of the type.
    bool getInteger(const std::string& in_strName, long& out_lValue) const;
    bool getBoolean(const std::string& in_strName, bool& out_bValue) const;

private:
    const std::map<std::string, std::string> m_values;  // explicit values by name
};

class GlobalConfig {
public:
    static GlobalConfig& getInstance();

    // A read handle on the current values; later changes make a new snapshot
    // and never alter one that is held.
    TSHandle<ROConfiguration> getConfig() const;

    // Sets a registered parameter; refuses an unknown name or a value of the
    // wrong type with a message naming the parameter.
    bool setValue(const std::string& in_strName, const std::string& in_strValue,
                  std::string& out_strError);
    // Forgets the explicit value (the registered default applies again).
    void clearValue(const std::string& in_strName);
    // Forgets every explicit value.
    void clear();

private:
    GlobalConfig() = default;
    mutable std::mutex m_mutex;                   // guards m_values and m_snapshot
    std::map<std::string, std::string> m_values;  // explicit values by name
    mutable TSHandle<ROConfiguration> m_snapshot;  // handle on m_values as last changed; null until first read
};

}  // namespace Tarvik
