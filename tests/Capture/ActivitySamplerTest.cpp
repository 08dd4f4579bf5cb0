#include "Capture/ActivitySampler.h"
#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeDesktop.h"

namespace mnemora::test {
namespace {

using Rows = std::vector<std::string>;

class ActivitySamplerTest : public StoreTest {
  protected:
    void start() {
        sampler = std::make_shared<ActivitySampler>(open(), std::chrono::seconds(6));
        sampler->start();
    }
    /// One interval later, on both clocks.
    void tick() {
        time.clock->moment += 6;
        desktop.loop->advance(std::chrono::seconds(6));
    }
    static Rows stored() {
        return outside(
            "SELECT source, kind, app, bundle, person, title, url, body FROM events ORDER BY id;");
    }

    FakeDesktop desktop;
    std::shared_ptr<ActivitySampler> sampler;
};

TEST_F(ActivitySamplerTest, KeepsWhatIsInFrontAndDropsRepeats) {
    desktop.recognizer->lines = {{"on screen"}};
    desktop.bringToFront("org.gnome.gedit", "Editor", "notes.txt");
    start();
    desktop.loop->runJobs(); // the first sample doesn't wait for the timer
    EXPECT_EQ(stored(), Rows{"screen|window|Editor|org.gnome.gedit|NULL|notes.txt|NULL|on screen"});
    for (int i = 0; i < 15; ++i)
        tick(); // 90 seconds of the same
    EXPECT_EQ(stored().size(), 1U);
    tick();
    EXPECT_EQ(stored().size(), 2U);
    desktop.workspace->front.reset();
    tick();
    EXPECT_EQ(stored().size(), 2U);
    desktop.workspace->front = RunningApplication{};
    tick();
    EXPECT_EQ(stored().back(), "screen|window|Unknown||NULL|NULL|NULL|on screen");
}

TEST_F(ActivitySamplerTest, ReadsPagesOfBrowsersAndNoScreenText) {
    const std::string tell = "tell application \"Google Chrome\" to return ";
    desktop.scripts->answers[tell + "URL of active tab of front window"] = {
        .failed = false, .text = "https://example.org/a"};
    desktop.scripts
        ->answers[tell +
                  "(execute active tab of front window javascript \"document.body.innerText\")"] = {
        .failed = false, .text = std::string(7000, 'x')};
    desktop.bringToFront("com.google.Chrome", "Chromium", "A page");
    start();
    desktop.loop->runJobs();
    EXPECT_EQ(stored(),
              Rows{"browser|page|Chromium|com.google.Chrome|NULL|A page|https://example.org/a|" +
                   std::string(6000, 'x')});
    desktop.bringToFront("com.google.Chrome", "Chromium", "Bank login");
    tick();
    EXPECT_EQ(stored().back(),
              "browser|page|Chromium|com.google.Chrome|NULL|Bank login|https://example.org/a|NULL");
    EXPECT_EQ(desktop.screen->pictures, 0);
    desktop.bringToFront("com.google.chrome", "Other", "T");
    tick();
    EXPECT_EQ(stored().back(), "screen|window|Other|com.google.chrome|NULL|T|NULL|");
}

TEST_F(ActivitySamplerTest, TakesNoPictureOfWhatIsPrivate) {
    desktop.bringToFront("com.1password.linux", "Vault", "Vault");
    start();
    desktop.loop->runJobs();
    desktop.bringToFront("org.gnome.gedit", "Editor", "My password list");
    tick();
    EXPECT_EQ(stored(),
              (Rows{"screen|window|Vault|com.1password.linux|NULL|Vault|NULL|NULL",
                    "screen|window|Editor|org.gnome.gedit|NULL|My password list|NULL|NULL"}));
    EXPECT_EQ(desktop.screen->pictures, 0);
}

TEST_F(ActivitySamplerTest, SaysOnceWhatIsMissingAndGoesOn) {
    desktop.accessibility->trusted = false;
    desktop.screen->permitted = false;
    desktop.bringToFront("a", "A", std::nullopt);
    const CapturedStderr output;
    start();
    for (int i = 0; i < 3; ++i) {
        desktop.bringToFront("a", "A" + std::to_string(i), std::nullopt);
        tick();
    }
    EXPECT_EQ(output.text(),
              "[mnemora][error] Accessibility not granted — titles will be empty.\n"
              "[mnemora][error] Screen Recording not granted — OCR content disabled.\n");
    EXPECT_EQ(stored().size(), 4U);
    EXPECT_EQ(stored().back(), "screen|window|A2|a|NULL|NULL|NULL|NULL");
    sampler.reset();
    const auto before = stored().size();
    tick();
    EXPECT_EQ(stored().size(), before);
}

} // namespace
} // namespace mnemora::test
