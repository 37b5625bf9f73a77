#include "vocal/SipUser.h"

namespace Vocal {

bool SipUser::decode(const TextBuffer& in_text) {
    m_user = in_text;
    return true;
}

CountedPtr<BaseUser> SipUser::duplicate() const { return CountedPtr<BaseUser>(new SipUser(*this)); }

namespace {
const SipUser* asSipUser(const CountedPtr<BaseUser>& in_user) {
    if (in_user.isNull() || in_user->getUserType() != SIP_USER) return nullptr;
    return dynamic_cast<const SipUser*>(in_user.get());
}
}  // namespace

bool SipUser::areEqual(CountedPtr<BaseUser> in_other) const {
    const SipUser* pOther = asSipUser(in_other);
    return pOther != nullptr && m_user == pOther->m_user;
}

bool SipUser::isLessThan(CountedPtr<BaseUser> in_other) const {
    const SipUser* pOther = asSipUser(in_other);
    return pOther != nullptr && m_user < pOther->m_user;
}

}  // namespace Vocal
