// Vocal::SipUser: a plain user name, kept and compared exactly as written.
#pragma once

#include "vocal/BaseUser.h"

namespace Vocal {

class SipUser : public BaseUser {
public:
    SipUser() = default;
    explicit SipUser(const TextBuffer& in_text) : m_user(in_text) {}
    explicit SipUser(std::string_view in_text) : m_user(in_text) {}

    bool decode(const TextBuffer& in_text) override;
    TextBuffer encode() const override { return m_user; }
    CountedPtr<BaseUser> duplicate() const override;
    int getUserType() const override { return SIP_USER; }
    // Another SipUser with exactly the same text.
    bool areEqual(CountedPtr<BaseUser> in_other) const override;
    // The other is a SipUser and this text is less, byte-wise.
    bool isLessThan(CountedPtr<BaseUser> in_other) const override;

    const TextBuffer& getUser() const { return m_user; }

private:
    TextBuffer m_user;  // the user text as written
};

}  // namespace Vocal
