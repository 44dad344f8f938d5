#include "ui/sessions/configuration/SessionConfiguration.h"
#include "support/ScriptedWorkspace.h"
#include "ui/sessions/configuration/NewSessionConfigurationViewModel.h"
#include "ui/sessions/configuration/SessionConfigurationViewModel.h"

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

const char* catalogue = R"({"data":[
 {"id":"gpt-5-codex","model":"gpt-5-codex","displayName":"GPT-5 Codex","description":"For agents.",
  "defaultReasoningEffort":"medium","isDefault":true,
  "supportedReasoningEfforts":[{"reasoningEffort":"low","description":"Fast"},{"reasoningEffort":"medium"},
                               {"reasoningEffort":"xhigh"}]},
 {"id":"gpt-5-mini","model":"gpt-5-mini","displayName":"GPT-5 Mini"}]})";

class SessionConfigurationTest : public ScriptedWorkspace {
protected:
    void answerCatalogue()
    {
        engine.last("model/list").completion(JSONValue::decode(catalogue).value());
    }
};

} // namespace

TEST(EffortDisplayName, NamesEveryForm)
{
    EXPECT_EQ(effortDisplayName(""), "Codex Default");
    EXPECT_EQ(effortDisplayName("xHigh"), "Extra High");
    EXPECT_EQ(effortDisplayName("medium"), "Medium");
    EXPECT_EQ(effortDisplayName("very-LOW"), "Very Low");
    EXPECT_EQ(effortDisplayName("max_depth"), "Max_depth");
}

TEST_F(SessionConfigurationTest, MenusShowTheSessionsChoiceAndRefuseChangesDuringATurn)
{
    SessionConfigurationViewModel menus(workspace, "s");
    EXPECT_EQ(menus.modelsPlaceholder(), "Loading available models…");
    EXPECT_EQ(menus.modelPickerRows()->value(0, "label"), "Codex Default");
    EXPECT_EQ(menus.modelPickerRows()->value(0, "id"), "");
    answerCatalogue();
    EXPECT_EQ(menus.modelsPlaceholder(), "");
    // Nothing stored: the model's default effort shows as selected.
    EXPECT_EQ(menus.effortLabel(), "Thinking: Medium");
    EXPECT_TRUE(menus.effortOptions()->value(1, "selected").toBool());
    EXPECT_EQ(menus.modelNote(), "For agents.");

    // An effort the model does not list shows in the label, with no option marked.
    workspace.changeSession(
        "s", [](CodexSessionState& s) { s.reasoningEffort = QStringLiteral("turbo-max"); });
    EXPECT_EQ(menus.effortName(), "Turbo Max");
    for (int row = 0; row < menus.effortOptions()->rowCount(); ++row)
        EXPECT_FALSE(menus.effortOptions()->value(row, "selected").toBool());
    menus.chooseEffort("xhigh");
    EXPECT_EQ(menus.effortAccessibleName(), "Thinking depth, Extra High");
    menus.chooseModel("gpt-5-mini");
    EXPECT_EQ(menus.modelAccessibleName(), "Model, GPT-5 Mini");
    EXPECT_EQ(menus.effortsPlaceholder(), "No thinking-depth choices reported for this model");
    EXPECT_EQ(menus.effortPickerRows()->rowCount(), 1);

    workspace.changeSession(
        "s", [](CodexSessionState& s) { s.turnControl.phase = TurnControlState::Phase::Running; });
    EXPECT_EQ(menus.modelHint(), "Stop the active turn before changing models");
    EXPECT_EQ(menus.effortHint(), "Stop the active turn before changing thinking depth");
    EXPECT_EQ(menus.footer(), "Stop the active turn before changing its model or thinking effort.");
    menus.chooseModel("gpt-5-codex");
    EXPECT_EQ(menus.modelName(), "GPT-5 Mini");
    const long loads = engine.count("model/list");
    menus.reloadModels(); // reloading still works during a turn
    EXPECT_EQ(engine.count("model/list"), loads + 1);
}

TEST_F(SessionConfigurationTest, ANewSessionsEffortFollowsItsModel)
{
    answerCatalogue();
    NewSessionConfigurationViewModel controls(workspace);
    EXPECT_EQ(controls.effortRows()->rowCount(), 1) << "no model: only Use Codex Default";
    controls.setModel("gpt-5-codex");
    EXPECT_EQ(controls.effort(), "") << "Use Codex Default stays";
    controls.setEffort("low");
    controls.setModel("gpt-5-codex-copy");
    EXPECT_EQ(controls.effort(), "");
    controls.setModel("gpt-5-codex");
    controls.setEffort("xhigh");
    controls.setModel("gpt-5-mini");
    EXPECT_EQ(controls.effort(), workspace.defaultEffort("gpt-5-mini").value_or(QString()));
    EXPECT_EQ(controls.modelIndex(), 2);
}

TEST_F(SessionConfigurationTest, ANewSessionStartsInFullAccessUntilAnotherModeIsChosen)
{
    NewSessionConfigurationViewModel first(workspace);
    EXPECT_EQ(first.permissionMode(), "full-access");
    EXPECT_EQ(first.permissionRows()->rowCount(), 3);
    first.setPermissionMode("no-such-mode");
    first.setPermissionMode("ask");
    workspace.createSession("", "", first.model(), first.effort(), first.permissionMode());
    EXPECT_EQ(engine.last("thread/start").params["approvalPolicy"], JSONValue("untrusted"));

    // The next sheet, even after a restart, offers the mode chosen last.
    SettingsUserDefaults reread(home.filePath("defaults.ini"));
    CodexWorkspace later(reread, scheduler, "Tabs", 4.0, 20.0);
    EXPECT_EQ(NewSessionConfigurationViewModel(later).permissionMode(), "ask");
}

TEST_F(SessionConfigurationTest, TheHeaderShowsTheModeInItsColourAndChangesTheNextTurn)
{
    workspace.openThread("s");
    SessionConfigurationViewModel header(workspace, "s");
    // Nobody chose yet: no mode is claimed, and none of the menu's is marked.
    EXPECT_EQ(header.permissionTitle(), "Not chosen yet");
    EXPECT_EQ(header.permissionColour(), "gray");
    header.choosePermissionMode("custom");
    EXPECT_EQ(header.permissionTitle(), "Not chosen yet");
    // Chosen elsewhere, it shows here.
    workspace.recordSessionMode("s", PermissionMode::FullAccess);
    EXPECT_EQ(header.permissionTitle(), "Full access");
    EXPECT_EQ(header.permissionColour(), "orange");
    header.choosePermissionMode("read-only");
    EXPECT_EQ(header.permissionTitle(), "Read only");
    EXPECT_EQ(header.permissionColour(), "cyan");
    EXPECT_EQ(workspace.sessionMode("s"), PermissionMode::ReadOnly);
}
