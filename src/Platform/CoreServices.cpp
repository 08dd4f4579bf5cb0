#include "Platform/CoreServices.h"

#include "Platform/SystemClock.h"

#include <utility>

namespace mnemora {
namespace {

CoreServices& installed() {
    static CoreServices services{
        .clock = std::make_shared<SystemClock>(),
        .sentenceModel = [](const std::string&) { return std::shared_ptr<SentenceModel>(); }};
    return services;
}

} // namespace

const CoreServices& coreServices() {
    return installed();
}

void installCoreServices(CoreServices services) {
    installed() = std::move(services);
}

ScopedCoreServices::ScopedCoreServices(CoreServices services)
    : former_(std::exchange(installed(), std::move(services))) {}

ScopedCoreServices::~ScopedCoreServices() {
    installed() = std::move(former_);
}

} // namespace mnemora
