#include "Platform/DesktopServices.h"

#include <utility>

namespace mnemora {
namespace {

DesktopServices& installed() {
    static DesktopServices services;
    return services;
}

} // namespace

const DesktopServices& desktopServices() {
    return installed();
}

void installDesktopServices(DesktopServices services) {
    installed() = std::move(services);
}

ScopedDesktopServices::ScopedDesktopServices(DesktopServices services)
    : former_(std::exchange(installed(), std::move(services))) {}

ScopedDesktopServices::~ScopedDesktopServices() {
    installed() = std::move(former_);
}

} // namespace mnemora
