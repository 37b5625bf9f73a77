// Vocal::BaseUser: the user part of a URL (the text ahead of the "@"), an
// object of its own so that plain names and telephone numbers follow their own
// rules for decoding, writing and comparing.
#pragma once

#include "vocal/CountedPtr.h"
#include "vocal/TextBuffer.h"

namespace Vocal {

// Values of BaseUser::getUserType().
enum UserType {
    SIP_USER = 0,                // SipUser: a plain user name
    SIP_TEL_SUBSCRIBER_USER = 1, // SipTelSubscriberUser: a telephone number with parameters
    NULL_USER = 2                // NullUser: no user
};

class BaseUser {
public:
    virtual ~BaseUser() = default;
    virtual bool decode(const TextBuffer& in_text) = 0;
    virtual TextBuffer encode() const = 0;
    virtual CountedPtr<BaseUser> duplicate() const = 0;
    virtual int getUserType() const = 0;
    // Both take the other user by value; a user of another type is never equal.
    virtual bool areEqual(CountedPtr<BaseUser> in_other) const = 0;
    virtual bool isLessThan(CountedPtr<BaseUser> in_other) const = 0;

protected:
    BaseUser() = default;
    BaseUser(const BaseUser&) = default;
    BaseUser& operator=(const BaseUser&) = default;
};

}  // namespace Vocal
