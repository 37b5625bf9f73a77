// Sets parameters for one test and closes the library and forgets the
// parameters afterwards.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "platform/GlobalConfig.h"
#include "platform/MemAccount.h"

namespace corvane_test {

class LibraryTest : public ::testing::Test {
protected:
    void TearDown() override {
        Tarvik::Net::forcedCloseLibrary();
        Tarvik::GlobalConfig::getInstance().clear();
    }
    static void set(const std::string& name, const std::string& value) {
        std::string error;
        ASSERT_TRUE(Tarvik::GlobalConfig::getInstance().setValue(name, value, error)) << error;
    }
    static Tarvik::HostNameServer& server() { return Tarvik::HostNameServer::getInstance(); }
    static long live(const char* account) { return Tarvik::MemAccount::get(account).getLiveObjects(); }
    // Waits (bounded) until an account has no live object left.
    static bool drained(const char* account) {
        for (int i = 0; i < 5000 && live(account) != 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return live(account) == 0;
    }
};

}  // namespace corvane_test
