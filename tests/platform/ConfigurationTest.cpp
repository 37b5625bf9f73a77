#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

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

TEST(GlobalConfig, ClearingAValueBringsBackTheRegisteredDefault) {
    ConfigReset reset;
    registerOnce("test.int", PARAM_TYPE_INTEGER, "3");
    std::string error;
    ASSERT_TRUE(GlobalConfig::getInstance().setValue("test.int", "8", error)) << error;
    long value = 0;
    EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
    EXPECT_EQ(value, 8);
    GlobalConfig::getInstance().clearValue("test.int");
    EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
    EXPECT_EQ(value, 3);
}

TEST(GlobalConfig, ReadersKeepWholeSnapshotsWhileWritersChangeValues) {
    ConfigReset reset;
    registerOnce("test.int", PARAM_TYPE_INTEGER, "3");
    registerOnce("test.bool", PARAM_TYPE_BOOLEAN, nullptr);
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w) {
        threads.emplace_back([w] {
            std::string error;
            for (int i = 0; i < 500; ++i) {
                GlobalConfig::getInstance().setValue("test.int", std::to_string(w * 1000 + i), error);
                GlobalConfig::getInstance().setValue("test.bool", i % 2 ? "true" : "false", error);
            }
        });
    }
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&torn] {
            for (int i = 0; i < 500; ++i) {
                TSHandle<ROConfiguration> config = GlobalConfig::getInstance().getConfig();
                long first = 0;
                long second = 0;
                // A held snapshot never changes under its reader.
                if (!config->getInteger("test.int", first) || !config->getInteger("test.int", second) ||
                    first != second) {
                    ++torn;
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(torn, 0);
    long value = 0;
    EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
    EXPECT_TRUE(value == 499 || value == 1499) << value;
}
