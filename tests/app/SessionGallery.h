#pragma once

// The session's views in one window over a session of a real workspace (the controller runs the
// fake engine): what the screenshot tour and the Qt Quick tests look at until the session view
// holds these views.
#include "support/BridgeUnderTest.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/UserInputRequestViewModel.h"
#include "ui/sessions/configuration/NewSessionConfigurationViewModel.h"
#include "ui/sessions/configuration/SessionConfigurationViewModel.h"
#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "ui/sessions/transcript/TranscriptViewModel.h"
#include "ui/usage/UsageStatusButtonViewModel.h"

#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <memory>

namespace nimbrel::test {

class SessionGallery {
public:
    static constexpr const char* threadID = "thr_1";

    // questionIDs: the questions of the session that get a card.
    SessionGallery(BridgeUnderTest& bridge, const QStringList& questionIDs = {})
        : preference(bridge.defaults)
        , transcript(bridge.workspace(), preference, threadID)
        , configuration(bridge.workspace(), threadID)
        , newSession(bridge.workspace())
        , usage(bridge.workspace(), bridge.scheduler, QString::fromLatin1(threadID), false)
    {
        QVariantList cards;
        for (const QString& id : questionIDs) {
            questions.push_back(
                std::make_unique<UserInputRequestViewModel>(bridge.workspace(), threadID, id));
            cards.append(QVariant::fromValue<QObject*>(questions.back().get()));
        }
        engine.setInitialProperties(
            {{"transcript", QVariant::fromValue<QObject*>(&transcript)},
             {"preference", QVariant::fromValue<QObject*>(&preference)},
             {"questions", cards},
             {"configuration", QVariant::fromValue<QObject*>(&configuration)},
             {"newSession", QVariant::fromValue<QObject*>(&newSession)},
             {"usage", QVariant::fromValue<QObject*>(&usage)},
             {"palette_", QVariant::fromValue<QObject*>(&palette)}});
        engine.load(QUrl::fromLocalFile(QStringLiteral(GALLERY_QML)));
    }
    QQuickWindow* window() const
    {
        return qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    }

    SessionActivityPreference preference;
    TranscriptViewModel transcript;
    SessionConfigurationViewModel configuration;
    NewSessionConfigurationViewModel newSession;
    UsageStatusButtonViewModel usage;
    std::vector<std::unique_ptr<UserInputRequestViewModel>> questions;
    WindowPalette palette;
    QQmlApplicationEngine engine;
};

} // namespace nimbrel::test
