#include "Linux/Desktop/BrandImages.h"
#include "fakes/TemporaryFolder.h"

#include <QGuiApplication>

#include <filesystem>
#include <gtest/gtest.h>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;

class BrandImages : public testing::Test {
  protected:
    ~BrandImages() override { QGuiApplication::setWindowIcon({}); }

    static QImage shown(const QIcon& icon) { return icon.pixmap(64, 64).toImage(); }

    test::TemporaryFolder folder_;
};

TEST_F(BrandImages, TheIconIsTheResourceElseTheApplicationsOwnElseEmpty) {
    const QIcon nothing = applicationIcon(folder_);
    ASSERT_EQ(nothing.availableSizes(), QList<QSize>{QSize(64, 64)});
    EXPECT_EQ(qAlpha(shown(nothing).pixel(32, 32)), 0);
    QPixmap own(64, 64);
    own.fill(Qt::blue);
    QGuiApplication::setWindowIcon(QIcon(own));
    EXPECT_EQ(shown(applicationIcon(folder_)).pixelColor(32, 32), QColor(Qt::blue));
    const auto resource = QString::fromStdString((folder_ / "AppIcon.png").string());
    ASSERT_TRUE(drawApplicationIcon(64).save(resource));
    EXPECT_EQ(shown(applicationIcon(folder_)).pixelColor(32, 4), terracotta());
    // A damaged resource is none.
    fs::resize_file(folder_ / "AppIcon.png", 20);
    EXPECT_EQ(shown(applicationIcon(folder_)).pixelColor(32, 32), QColor(Qt::blue));
}

TEST_F(BrandImages, TheMarkIsOneColourOnNothingAndSharpAtTwiceTheSize) {
    const QPixmap mark = menuBarImage(18, Qt::white, 2);
    EXPECT_EQ(mark.size(), QSize(36, 36));
    EXPECT_EQ(mark.deviceIndependentSize(), QSizeF(18, 18));
    const QImage picture = mark.toImage();
    int drawn = 0;
    for (int y = 0; y < 36; ++y)
        for (int x = 0; x < 36; ++x) {
            const QColor color = picture.pixelColor(x, y);
            if (color.alpha() == 0)
                continue;
            ++drawn;
            EXPECT_GT(color.lightness(), 250);
            EXPECT_TRUE(x >= 2 && x <= 33) << x; // 6 percent are left free
        }
    EXPECT_TRUE(drawn > 36 * 36 / 4 && drawn < 36 * 36 * 2 / 3) << drawn;
    // The trace between the halves is empty in the middle: even-odd, and the right way up.
    EXPECT_EQ(picture.pixelColor(18, 18).alpha(), 0);
    EXPECT_GT(picture.pixelColor(24, 9).alpha(), 200);
}

} // namespace
} // namespace mnemora::desktop
