// Vocal::UnknownUrl: any text without a scheme of the model, kept whole.
#pragma once

#include "vocal/BaseUrl.h"

namespace Vocal {

class UnknownUrl : public BaseUrl {
public:
    UnknownUrl() = default;
    // Keeps the text; never fails.
    explicit UnknownUrl(const TextBuffer& in_text) : m_text(in_text) {}

    TextBuffer encode() const override { return m_text; }
    // A new NullUser.
    CountedPtr<BaseUser> getUser() const override;
    TextBuffer getUserValue() const override { return TextBuffer(); }
    TextBuffer encodeAddress() const override { return m_text; }
    void setUser(CountedPtr<BaseUser>) override {}
    // Stores nothing; true.
    bool setUserValue(const TextBuffer&, const TextBuffer&) override { return true; }
    UrlType getType() const override { return UNKNOWN_URL; }
    CountedPtr<BaseUrl> duplicate() const override;
    using BaseUrl::areEqual;
    // Another UnknownUrl whose text is exactly the same.
    bool areEqual(const BaseUrl* in_pOther) const override;
    // This text is less, byte-wise, than the other URL's encodeAddress(),
    // whatever the other's type.
    bool isLessThan(CountedPtr<BaseUrl> in_other) const override;

private:
    TextBuffer m_text;  // the whole text it was built from
};

}  // namespace Vocal
