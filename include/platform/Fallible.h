// A value with a validity flag: an invalid Fallible holds no usable value.
#pragma once

namespace Tarvik {

template <class T>
class Fallible {
public:
    Fallible() : m_bValid(false), m_value() {}
    Fallible(const T& in_value) : m_bValid(true), m_value(in_value) {}  // NOLINT: implicit on purpose

    bool isValid() const { return m_bValid; }
    const T& getValue() const { return m_value; }
    operator const T&() const { return m_value; }
    void invalidate() { m_bValid = false; }

private:
    bool m_bValid;  // true when m_value holds a result
    T m_value;      // the result; meaningful only when m_bValid
};

}  // namespace Tarvik
