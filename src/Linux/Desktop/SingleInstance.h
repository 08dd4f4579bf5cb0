#pragma once
// One program a session, by a name on the message bus (D-Bus specification, "Message Bus Names").

#include <QDBusAbstractAdaptor>
#include <QVariantMap>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace mnemora::desktop {

/// Answers others that want the program to show itself, as the Desktop Entry Specification 1.5
/// ("D-Bus Activation") words it.
class ApplicationInterface : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    ApplicationInterface(QObject* object, std::function<void()> activated);

  public Q_SLOTS:
    void Activate(const QVariantMap& platformData);

  private:
    std::function<void()> activated_;
};

/// Needs the toolkit's application object. Main thread.
class SingleInstance {
  public:
    /// `activated` is called each time another start asks for the running program.
    explicit SingleInstance(std::function<void()> activated);
    ~SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    /// Takes the name. Another program that holds it is asked to show itself: false once it has
    /// answered, and this one should end. One that is just ending gives the name up instead, for
    /// which it gets `patience`; one that does neither counts as running. True also without a
    /// session bus, or one that answers within `patience`, with an error line: then nothing keeps a
    /// second one away.
    [[nodiscard]] bool acquire(std::chrono::milliseconds patience);
    /// Gives the name up, for the next one: the first thing to do when this one is to end. More
    /// than once does no harm.
    void release();

  private:
    /// Whether the name is ours; absent when the bus doesn't answer.
    [[nodiscard]] static std::optional<bool> takeName();
    [[nodiscard]] static bool takeOver(std::chrono::milliseconds patience);

    std::unique_ptr<QObject> object_;
    bool holds_ = false;
};

} // namespace mnemora::desktop
