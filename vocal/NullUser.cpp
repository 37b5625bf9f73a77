#include "vocal/NullUser.h"

namespace Vocal {

CountedPtr<BaseUser> NullUser::duplicate() const { return CountedPtr<BaseUser>(new NullUser); }

bool NullUser::areEqual(CountedPtr<BaseUser> in_other) const {
    return !in_other.isNull() && in_other->getUserType() == NULL_USER;
}

bool NullUser::isLessThan(CountedPtr<BaseUser> in_other) const {
    return !in_other.isNull() && in_other->getUserType() != NULL_USER;
}

}  // namespace Vocal
