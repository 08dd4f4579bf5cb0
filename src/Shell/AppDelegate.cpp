#include "Shell/AppDelegate.h"

#include "Capture/ActivitySampler.h"
#include "Log.h"
#include "Store/MnemoraStore.h"

#include <chrono>

namespace mnemora {
namespace {

constexpr std::chrono::duration<double> samplingInterval(6.0);

} // namespace

AppDelegate::AppDelegate(MnemoraStore& store) : store_(store) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    sampler_ = std::make_shared<ActivitySampler>(store_, samplingInterval);
    sampler_->start();
    logInfo("capture started → " + MnemoraStore::dbPath());
}

} // namespace mnemora
