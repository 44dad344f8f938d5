#include "app/BridgeWindow.h"

#include <QGuiApplication>
#include <QQuickStyle>

#include <gmock/gmock.h>

#include <csignal>

// The window's tests run offscreen unless told otherwise.
int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QGuiApplication app(argc, argv);
    nimbrel::BridgeWindow::useIconTheme();
    ::testing::InitGoogleMock(&argc, argv);
    const int result = RUN_ALL_TESTS();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return result;
}
