// A file of the test's own with the given content, removed when it goes.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace corvane_test {

class TempFile {
public:
    explicit TempFile(const std::string& in_strContent) : m_strPath(uniquePath()) {
        std::ofstream(m_strPath, std::ios::binary) << in_strContent;
    }
    ~TempFile() { std::remove(m_strPath.c_str()); }
    const std::string& path() const { return m_strPath; }
    // A path in the test folder that no file has.
    static std::string uniquePath() {
        static std::atomic<int> s_counter{0};
        return testing::TempDir() + "corvane-" + std::to_string(getpid()) + "-" + std::to_string(++s_counter);
    }

private:
    const std::string m_strPath;
};

}  // namespace corvane_test
