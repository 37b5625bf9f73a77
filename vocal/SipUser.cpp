#include "vocal/SipUser.h"

namespace Vocal {

bool SipUser::decode(const TextBuffer& in_text) {
    m_user = in_text;
    return true;
}

CountedPtr<BaseUser> SipUser::duplicate() const { return CountedPtr<BaseUser>(new SipUser(*this)); }

bool SipUser::areEqual(CountedPtr<BaseUser> in_other) const {
    const auto* pOther = dynamic_cast<const SipUser*>(in_other.get());
    return pOther != nullptr && m_user == pOther->m_user;
}

bool SipUser::isLessThan(CountedPtr<BaseUser> in_other) const {
    const auto* pOther = dynamic_cast<const SipUser*>(in_other.get());
    return pOther != nullptr && m_user < pOther->m_user;
}

}  // namespace Vocal
