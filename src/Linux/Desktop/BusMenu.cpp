#include "Linux/Desktop/BusMenu.h"

#include "Linux/Desktop/MenuTexts.h"

#include <QGuiApplication>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace mnemora::desktop {
namespace {

constexpr int rootId = 0;

bool looksTheSame(const MenuItem& one, const MenuItem& other) {
    return one.title == other.title && one.isSeparator == other.isSeparator &&
           one.isEnabled() == other.isEnabled() && one.keyEquivalent == other.keyEquivalent;
}

QVariantMap propertiesOf(const MenuItem& item) {
    if (item.isSeparator)
        return {{QStringLiteral("type"), QStringLiteral("separator")}};
    QVariantMap properties = {{QStringLiteral("label"), busTitle(item.title)},
                              {QStringLiteral("enabled"), item.isEnabled()}};
    if (item.keyEquivalent != 0) {
        const QStringList keys = {QStringLiteral("Control"),
                                  QString(QLatin1Char(item.keyEquivalent))};
        properties[QStringLiteral("shortcut")] = QVariant::fromValue(QList<QStringList>{keys});
    }
    return properties;
}

} // namespace

BusMenu::BusMenu(QObject* object, std::function<Menu()> menuNeedsUpdate)
    : QDBusAbstractAdaptor(object), menuNeedsUpdate_(std::move(menuNeedsUpdate)) {
    registerBusTypes();
}

QString BusMenu::textDirection() {
    return QGuiApplication::isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr");
}

// Nobody opens a menu more often than that; a panel that asks without end gets the former one.
bool BusMenu::rebuild() {
    constexpr auto shortest = std::chrono::milliseconds(50);
    const auto now = std::chrono::steady_clock::now();
    if (revision_ != 0 && now - builtAt_ < shortest)
        return false;
    builtAt_ = now;
    auto menu = menuNeedsUpdate_();
    const bool same = std::ranges::equal(menu, menu_, looksTheSame);
    if (!same) {
        // Ids come round after 2^30 items; a panel keeps none that long.
        firstId_ = firstId_ > (1 << 30) ? 1 : firstId_ + static_cast<int>(menu_.size());
        ++revision_;
    }
    menu_ = std::move(menu);
    return !same;
}

void BusMenu::ensureBuilt() {
    if (revision_ == 0)
        rebuild();
}

const MenuItem* BusMenu::item(int id) const {
    const auto index = static_cast<size_t>(id) - static_cast<size_t>(firstId_);
    return id >= firstId_ && index < menu_.size() ? &menu_[index] : nullptr;
}

QVariantMap BusMenu::properties(int id, const QStringList& names) const {
    QVariantMap all;
    if (id == rootId)
        all = {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
    else if (const auto* found = item(id))
        all = propertiesOf(*found);
    if (names.isEmpty())
        return all;
    all.removeIf([&](const auto& entry) { return !names.contains(entry.key()); });
    return all;
}

uint BusMenu::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                        MenuLayout& layout) {
    ensureBuilt();
    layout = {.id = parentId, .properties = properties(parentId, propertyNames), .children = {}};
    if (parentId == rootId && recursionDepth != 0)
        for (int id = firstId_; item(id) != nullptr; ++id)
            layout.children.append(
                {.id = id, .properties = properties(id, propertyNames), .children = {}});
    return revision_;
}

MenuPropertiesList BusMenu::GetGroupProperties(const QList<int>& ids,
                                               const QStringList& propertyNames) {
    ensureBuilt();
    MenuPropertiesList list;
    if (ids.isEmpty()) // stands for all
        for (int id = firstId_; item(id) != nullptr; ++id)
            list.append({.id = id, .properties = properties(id, propertyNames)});
    for (const int id : ids)
        if (id == rootId || item(id) != nullptr)
            list.append({.id = id, .properties = properties(id, propertyNames)});
    return list;
}

QDBusVariant BusMenu::GetProperty(int id, const QString& name) {
    ensureBuilt();
    const auto found = properties(id, {name}).value(name);
    return QDBusVariant(found.isValid() ? found : QVariant(QString()));
}

void BusMenu::Event(int id, const QString& eventId, const QDBusVariant& /*data*/,
                    uint /*timestamp*/) {
    // Some panels announce an opening only this way, and read again when told to.
    if (eventId == QLatin1String("opened") && id == rootId && rebuild())
        Q_EMIT LayoutUpdated(revision_, rootId);
    const auto* chosen = eventId == QLatin1String("clicked") ? item(id) : nullptr;
    if (chosen != nullptr && chosen->isEnabled())
        QTimer::singleShot(0, this, chosen->action); // the caller gets its reply first
}

QList<int> BusMenu::EventGroup(const MenuEvents& events) {
    QList<int> unknown;
    for (const auto& event : events) {
        if (event.id != rootId && item(event.id) == nullptr)
            unknown.append(event.id);
        else
            Event(event.id, event.name, event.data, event.timestamp);
    }
    return unknown;
}

bool BusMenu::AboutToShow(int id) {
    if (id != rootId || !rebuild())
        return false;
    Q_EMIT LayoutUpdated(revision_, rootId);
    return true;
}

QList<int> BusMenu::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> changed;
    for (const int id : ids) {
        if (id != rootId && item(id) == nullptr)
            idErrors.append(id);
        else if (AboutToShow(id))
            changed.append(id);
    }
    return changed;
}

} // namespace mnemora::desktop
