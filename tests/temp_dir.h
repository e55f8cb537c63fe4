#pragma once
// A fresh folder per test, removed afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <string>

namespace tavora::testing_support {

class TempDir {
 public:
  TempDir() {
    static std::atomic<int> counter{0};
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() /
            ("tavora-test-" + std::string(info ? info->name() : "x") + "-" +
             std::to_string(counter++) + "-" + std::to_string(std::random_device{}()));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace tavora::testing_support
