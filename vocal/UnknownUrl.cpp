#include "vocal/UnknownUrl.h"

#include "vocal/NullUser.h"

namespace Vocal {

namespace {
// No URL class has this type value, so the type test below never excludes
// anything: an UnknownUrl orders against URLs of every type.
const int kNoSuchUrlType = 5;
}  // namespace

CountedPtr<BaseUser> UnknownUrl::getUser() const { return CountedPtr<BaseUser>(new NullUser); }

CountedPtr<BaseUrl> UnknownUrl::duplicate() const { return CountedPtr<BaseUrl>(new UnknownUrl(*this)); }

bool UnknownUrl::areEqual(const BaseUrl* in_pOther) const {
    return in_pOther != nullptr && in_pOther->getType() == UNKNOWN_URL && in_pOther->encodeAddress() == m_text;
}

bool UnknownUrl::isLessThan(CountedPtr<BaseUrl> in_other) const {
    if (in_other.isNull() || static_cast<int>(in_other->getType()) == kNoSuchUrlType) return false;
    return m_text < in_other->encodeAddress();
}

}  // namespace Vocal
