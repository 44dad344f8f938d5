#include "BridgeWindow.h"

#include "bridge/BridgeController.h"
#include "ui/setup/CockpitAddresses.h"

#include <QIcon>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStandardPaths>

namespace nimbrel {

BridgeWindow::BridgeWindow(BridgeController& controller, UserDefaults& defaults,
                           DesktopNotifications* notifications)
    : m_controller(controller)
    , m_setup(controller, defaults)
    , m_sessions(controller.workspace(), controller.scheduler(), defaults)
{
    // Codex not found, by the controller's word for it: the empty Sessions page offers the tour.
    auto codexMissing = [&controller] {
        const QString source = controller.codexInstallSource();
        return source == QStringLiteral("Not installed") ||
               source == QStringLiteral("Custom path unavailable");
    };
    QObject::connect(&controller, &BridgeController::codexInstallSourceChanged, &m_sessions,
                     [this, codexMissing] { m_sessions.setCodexMissing(codexMissing()); });
    m_sessions.setCodexMissing(codexMissing());
    m_engine.addImageProvider(QStringLiteral("qr"), new QrCodeImageProvider);
    m_engine.setInitialProperties(
        {{"controller", QVariant::fromValue<QObject*>(&controller)},
         {"workspace", QVariant::fromValue<QObject*>(&controller.workspace())},
         {"setup", QVariant::fromValue<QObject*>(&m_setup)},
         {"palette_", QVariant::fromValue<QObject*>(&m_palette)},
         {"sessions", QVariant::fromValue<QObject*>(&m_sessions)}});
    m_engine.load(QUrl(QStringLiteral("qrc:/NimbrelBridge/ui/Main.qml")));
    if (notifications && mainWindow())
        m_attention = std::make_unique<AttentionNotifications>(
            controller, defaults, *notifications,
            AttentionNotifications::Window{
                [this] { return mainWindow()->isActive(); },
                [this](const QString& threadID) { return shows(threadID); },
                [this](const QString& threadID) { bringForward(threadID); }});
}

bool BridgeWindow::shows(const QString& threadID) const
{
    const QObject* pages = find(QStringLiteral("pagePicker"));
    return pages && pages->property("currentIndex").toInt() == 0 &&
           m_controller.workspace().selectedThreadID() == threadID;
}

void BridgeWindow::bringForward(const QString& threadID)
{
    QQuickWindow* window = mainWindow();
    if (!window)
        return;
    if (!threadID.isEmpty()) {
        if (QObject* pages = find(QStringLiteral("pagePicker")))
            pages->setProperty("currentIndex", 0);
        m_controller.workspace().openThread(threadID);
    }
    if (window->visibility() == QWindow::Minimized || !window->isVisible())
        window->showNormal();
    window->raise();
    window->requestActivate();
}

QQuickWindow* BridgeWindow::mainWindow() const
{
    return qobject_cast<QQuickWindow*>(m_engine.rootObjects().value(0));
}

QQuickWindow* BridgeWindow::settingsWindow() const
{
    QQuickWindow* window = mainWindow();
    return window ? window->findChild<QQuickWindow*>(QStringLiteral("settingsWindow")) : nullptr;
}

namespace {

// Delegates of repeaters belong to their parent item, not always to its object: walk the items.
QQuickItem* findItem(QQuickItem* item, const QString& objectName)
{
    if (item->objectName() == objectName)
        return item;
    for (QQuickItem* child : item->childItems())
        if (QQuickItem* found = findItem(child, objectName))
            return found;
    return nullptr;
}

} // namespace

QObject* BridgeWindow::find(const QString& objectName) const
{
    for (QQuickWindow* window : {mainWindow(), settingsWindow()}) {
        if (!window)
            continue;
        if (window->objectName() == objectName)
            return window;
        if (QObject* found = window->findChild<QObject*>(objectName))
            return found;
        if (QQuickItem* found = findItem(window->contentItem(), objectName))
            return found;
    }
    return nullptr;
}

void BridgeWindow::useIconTheme()
{
    // Adwaita holds every symbol the window names, in pixel sizes that need no SVG support.
    QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
    // Without a desktop's platform theme Qt looks in no system folder: add the shared ones.
    QStringList paths = QIcon::themeSearchPaths();
    for (const QString& folder :
         QStandardPaths::locateAll(QStandardPaths::GenericDataLocation, QStringLiteral("icons"),
                                   QStandardPaths::LocateDirectory))
        if (!paths.contains(folder))
            paths.append(folder);
    QIcon::setThemeSearchPaths(paths);
    const QString theme = QIcon::themeName();
    if (theme.isEmpty() || theme == QLatin1String("hicolor"))
        QIcon::setThemeName(QStringLiteral("Adwaita"));
}

} // namespace nimbrel
