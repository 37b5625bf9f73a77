#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "platform/GlobalConfig.h"
#include "platform/ParameterInfoDB.h"

using namespace Tarvik;

namespace {

struct ConfigReset {
    ~ConfigReset() { GlobalConfig::getInstance().clear(); }
};

void registerOnce(const char* name, int type, const char* def) {
    ParameterInfo info;
    if (!ParameterInfoDB::getInstance().find(name, info)) {
        ParameterInfoDB::getNonConstInstance().registerParameter(name, type, def, false, false, false, "d");
    }
}

}  // namespace

TEST(ParameterInfoDB, DuplicateRegistrationThrowsNamingTheParameter) {
    registerOnce("test.dup", PARAM_TYPE_TEXT, nullptr);
    try {
        ParameterInfoDB::getNonConstInstance().registerParameter("test.dup", PARAM_TYPE_TEXT, nullptr,
                                                                 false, false, false, "again");
        FAIL() << "no exception";
    } catch (const Tarvik::Exception& e) {
        EXPECT_NE(e.getText().find("test.dup"), std::string::npos);
    }
}

TEST(GlobalConfig, TypedGettersUseExplicitValueThenRegisteredDefault) {
    ConfigReset reset;
    registerOnce("test.int", PARAM_TYPE_INTEGER, "3");
    registerOnce("test.bool", PARAM_TYPE_BOOLEAN, nullptr);
    long value = 0;
    bool flag = true;
    EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
    EXPECT_EQ(value, 3);
    EXPECT_FALSE(GlobalConfig::getInstance().getConfig()->getBoolean("test.bool", flag));

    std::string error;
    ASSERT_TRUE(GlobalConfig::getInstance().setValue("test.int", "-7", error)) << error;
    ASSERT_TRUE(GlobalConfig::getInstance().setValue("test.bool", "false", error)) << error;
    TSHandle<ROConfiguration> config = GlobalConfig::getInstance().getConfig();
    EXPECT_TRUE(config->getInteger("test.int", value));
    EXPECT_EQ(value, -7);
    EXPECT_TRUE(config->getBoolean("test.bool", flag));
    EXPECT_FALSE(flag);

    // A held handle is a snapshot: later changes do not alter it.
    ASSERT_TRUE(GlobalConfig::getInstance().setValue("test.int", "9", error));
    EXPECT_TRUE(config->getInteger("test.int", value));
    EXPECT_EQ(value, -7);
}

TEST(GlobalConfig, RefusesUnknownNamesAndIllTypedValuesNamingTheParameter) {
    ConfigReset reset;
    registerOnce("test.int", PARAM_TYPE_INTEGER, "3");
    registerOnce("test.bool", PARAM_TYPE_BOOLEAN, nullptr);
    const struct {
        const char* name;
        const char* value;
    } cases[] = {{"test.nope", "1"}, {"test.int", "abc"}, {"test.int", ""},
                 {"test.int", "12x"}, {"test.bool", "yes"}, {"test.bool", "TRUE"}};
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(GlobalConfig::getInstance().setValue(c.name, c.value, error)) << c.name << "=" << c.value;
        EXPECT_NE(error.find(c.name), std::string::npos) << error;
    }
    long value = 0;
    EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
    EXPECT_EQ(value, 3);
}
