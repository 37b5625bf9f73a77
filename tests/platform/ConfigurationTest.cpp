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

// Registers the test parameters once; clears every explicit value when it goes.
struct GlobalConfigTest : ::testing::Test {
    GlobalConfigTest() {
        registerOnce("test.int", PARAM_TYPE_INTEGER, "3");
        registerOnce("test.bool", PARAM_TYPE_BOOLEAN, nullptr);
    }
    ~GlobalConfigTest() override { GlobalConfig::getInstance().clear(); }
    static void registerOnce(const char* name, int type, const char* def) {
        ParameterInfo info;
        if (!ParameterInfoDB::getInstance().find(name, info))
            ParameterInfoDB::getNonConstInstance().registerParameter(name, type, def, false, false, false, "d");
    }
    static bool set(const char* in_szName, const std::string& in_value) {
        std::string error;
        return GlobalConfig::getInstance().setValue(in_szName, in_value, error);
    }
    static long getInt() {
        long value = -1;
        EXPECT_TRUE(GlobalConfig::getInstance().getConfig()->getInteger("test.int", value));
        return value;
    }
};

}  // namespace

TEST_F(GlobalConfigTest, RegistrationKeepsEveryFieldAndADuplicateThrowsNamingTheParameter) {
    ParameterInfo info;
    if (!ParameterInfoDB::getInstance().find("test.flags", info))
        ParameterInfoDB::getNonConstInstance().registerParameter("test.flags", PARAM_TYPE_TEXT, "x", false, true, true,
                                                                 "what it is");
    ASSERT_TRUE(ParameterInfoDB::getInstance().find("test.flags", info));
    EXPECT_EQ(info.type, PARAM_TYPE_TEXT);
    EXPECT_TRUE(info.hasDefault);
    EXPECT_EQ(info.defaultValue, "x");
    EXPECT_EQ(std::vector<bool>(info.flags, info.flags + 3), (std::vector<bool>{false, true, true}));
    EXPECT_EQ(info.description, "what it is");
    try {
        ParameterInfoDB::getNonConstInstance().registerParameter("test.int", PARAM_TYPE_TEXT, nullptr, false, false,
                                                                 false, "again");
        FAIL() << "no exception";
    } catch (const Tarvik::Exception& e) {
        EXPECT_NE(e.getText().find("test.int"), std::string::npos);
    }
}

TEST_F(GlobalConfigTest, TypedGettersUseExplicitValueThenRegisteredDefault) {
    bool flag = true;
    EXPECT_EQ(getInt(), 3);
    EXPECT_FALSE(GlobalConfig::getInstance().getConfig()->getBoolean("test.bool", flag));  // no default
    ASSERT_TRUE(set("test.int", "-7"));
    ASSERT_TRUE(set("test.bool", "false"));
    TSHandle<ROConfiguration> config = GlobalConfig::getInstance().getConfig();
    long value = 0;
    EXPECT_TRUE(config->getBoolean("test.bool", flag));
    EXPECT_FALSE(flag);
    ASSERT_TRUE(set("test.int", "9"));
    EXPECT_TRUE(config->getInteger("test.int", value));
    EXPECT_EQ(value, -7);  // a held handle is a snapshot
    EXPECT_EQ(getInt(), 9);
    GlobalConfig::getInstance().clearValue("test.int");
    EXPECT_EQ(getInt(), 3);  // the registered default is back
}

TEST_F(GlobalConfigTest, RefusesUnknownNamesAndIllTypedValuesNamingTheParameter) {
    const struct {
        const char* name;
        const char* value;
    } cases[] = {{"test.nope", "1"},  {"test.int", "abc"},  {"test.int", ""},
                 {"test.int", "12x"}, {"test.bool", "yes"}, {"test.bool", "TRUE"}};
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(GlobalConfig::getInstance().setValue(c.name, c.value, error)) << c.name << "=" << c.value;
        EXPECT_NE(error.find(c.name), std::string::npos) << error;
    }
    EXPECT_EQ(getInt(), 3);
}

TEST_F(GlobalConfigTest, ReadersKeepWholeSnapshotsWhileWritersChangeValues) {
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w) {
        threads.emplace_back([w] {
            for (int i = 0; i < 500; ++i) {
                set("test.int", std::to_string(w * 1000 + i));
                set("test.bool", i % 2 ? "true" : "false");
            }
        });
    }
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&torn] {
            for (int i = 0; i < 500; ++i) {
                TSHandle<ROConfiguration> config = GlobalConfig::getInstance().getConfig();
                long first = 0, second = 0;
                if (!config->getInteger("test.int", first) || !config->getInteger("test.int", second) || first != second)
                    ++torn;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(torn, 0);
    const long value = getInt();
    EXPECT_TRUE(value == 499 || value == 1499) << value;
}
