// Fonts need an application object, on a machine without a display too.

#include <QGuiApplication>
#include <gtest/gtest.h>
#include <memory>

namespace {

class OffscreenApplication final : public ::testing::Environment {
  public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        application_ = std::make_unique<QGuiApplication>(count_, words_);
    }
    void TearDown() override { application_.reset(); }

  private:
    int count_ = 1;
    char name_[5] = "test";
    char* words_[2] = {name_, nullptr};
    std::unique_ptr<QGuiApplication> application_;
};

[[maybe_unused]] const auto* const environment =
    ::testing::AddGlobalTestEnvironment(std::make_unique<OffscreenApplication>().release());

} // namespace
