// Vocal::NullUser: stands for an absent user.
#pragma once

#include "vocal/BaseUser.h"

namespace Vocal {

class NullUser : public BaseUser {
public:
    bool decode(const TextBuffer&) override { return true; }
    TextBuffer encode() const override { return TextBuffer(); }
    CountedPtr<BaseUser> duplicate() const override;
    int getUserType() const override { return NULL_USER; }
    // Only another NullUser is equal.
    bool areEqual(CountedPtr<BaseUser> in_other) const override;
    // Less than every user of another type.
    bool isLessThan(CountedPtr<BaseUser> in_other) const override;
};

}  // namespace Vocal
