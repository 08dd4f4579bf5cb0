#pragma once
// The two services that both modes need, installed before the store is made.

#include "Platform/Clock.h"
#include "Platform/SentenceModel.h"

#include <functional>
#include <memory>
#include <string>

namespace mnemora {

/// What the composition root hands to the core. Every member is always set.
struct CoreServices {
    std::shared_ptr<Clock> clock;
    /// The sentence model for a language ("en"), or null when the platform has none.
    std::function<std::shared_ptr<SentenceModel>(const std::string& language)> sentenceModel;
};

/// The installed services: the system clock and no model until something else is installed.
[[nodiscard]] const CoreServices& coreServices();

/// Installs the services for the process. Main thread, before any other thread uses them.
void installCoreServices(CoreServices services);

/// Installs services for a scope, then puts the former ones back; for tests.
class ScopedCoreServices {
  public:
    explicit ScopedCoreServices(CoreServices services);
    ~ScopedCoreServices();
    ScopedCoreServices(const ScopedCoreServices&) = delete;
    ScopedCoreServices& operator=(const ScopedCoreServices&) = delete;

  private:
    CoreServices former_;
};

} // namespace mnemora
