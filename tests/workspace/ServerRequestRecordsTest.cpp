#include "workspace/ServerRequestRecords.h"
#include "workspace/PermissionMode.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

JSONValue json(const char* text)
{
    return JSONValue::decode(text).value();
}

JSONValue form(const char* properties, const char* required = "[]")
{
    return json(
        (std::string(
             R"({"serverName":"s","mode":"form","message":"m","requestedSchema":{"type":"object","required":)") +
         required + R"(,"properties":)" + properties + "}}")
            .c_str());
}

} // namespace

TEST(PermissionModeRules, EachModeSendsItsPolicyAndSandboxAndIsKnownByThem)
{
    struct Case {
        PermissionMode mode;
        const char* key;
        const char* policy;
        const char* sandbox;
        const char* sandboxPolicy;
    };
    for (const Case& c : {
             Case{PermissionMode::FullAccess, "full-access", "never", "danger-full-access",
                  R"({"type":"dangerFullAccess"})"},
             Case{PermissionMode::AskBeforeActing, "ask", "untrusted", "workspace-write",
                  R"({"type":"workspaceWrite"})"},
             Case{PermissionMode::ReadOnly, "read-only", "on-request", "read-only",
                  R"({"type":"readOnly"})"},
         }) {
        EXPECT_EQ(permissionModeKey(c.mode), c.key);
        EXPECT_EQ(permissionModeFromKey(c.key), c.mode);
        EXPECT_EQ(approvalPolicyOf(c.mode), c.policy);
        EXPECT_EQ(sandboxModeOf(c.mode), c.sandbox);
        EXPECT_EQ(sandboxPolicyOf(c.mode), json(c.sandboxPolicy));
        EXPECT_EQ(permissionModeOf(c.policy, c.sandbox), c.mode);
    }
    EXPECT_FALSE(permissionModeFromKey("Full access"));
    EXPECT_FALSE(permissionModeOf("never", "read-only"));
    EXPECT_EQ(permissionModes().front(), PermissionMode::FullAccess);

    // What params ask for, or an answer reports: one of the three, Custom, or nothing.
    const std::pair<const char*, std::optional<PermissionMode>> read[] = {
        {R"({"approvalPolicy":"on-request","sandbox":"read-only"})", PermissionMode::ReadOnly},
        {R"({"approvalPolicy":"untrusted","sandboxPolicy":{"type":"workspaceWrite","networkAccess":false}})",
         PermissionMode::AskBeforeActing},
        {R"({"approvalPolicy":"never","sandbox":{"type":"dangerFullAccess"}})",
         PermissionMode::FullAccess},
        {R"({"approvalPolicy":"on-failure","sandbox":"read-only"})", PermissionMode::Custom},
        {R"({"approvalPolicy":{"granular":{}},"sandbox":"read-only"})", PermissionMode::Custom},
        {R"({"approvalPolicy":"never"})", PermissionMode::Custom},
        {R"({"threadId":"t","approvalPolicy":null})", std::nullopt},
    };
    for (const auto& [params, mode] : read)
        EXPECT_EQ(permissionModeIn(json(params)), mode) << params;
    EXPECT_EQ(
        withPermissionMode(json(R"({"threadId":"t","approvalPolicy":"never"})"),
                           PermissionMode::ReadOnly, true),
        json(
            R"({"threadId":"t","approvalPolicy":"on-request","sandboxPolicy":{"type":"readOnly"}})"));
    EXPECT_EQ(withPermissionMode(json(R"({"threadId":"t"})"), PermissionMode::Custom, false),
              json(R"({"threadId":"t"})"));
}

TEST(ElicitationParsing, ShowableRequestsAreReadAndOthersSayWhy)
{
    struct Case {
        JSONValue params;
        const char* error; // nullptr: readable
    };
    const Case cases[] = {
        {form(R"({"a":{"type":"string"},"b":{"type":"integer","minimum":1},"c":{"type":"boolean"},
                  "d":{"type":"string","enum":["x","y"],"enumNames":["X","Y"]},
                  "e":{"type":"string","oneOf":[{"const":"p","title":"P"}]},
                  "f":{"type":"array","items":{"type":"string","enum":["u","v"]}},
                  "g":{"type":"array","items":{"anyOf":[{"const":"w","title":"W"}]}},
                  "h":{"type":"number"}})"),
         nullptr},
        {json(R"({"mode":"url","message":"m","url":"https://example.com/a"})"), nullptr},
        {json(R"([])"), "the request is not an object"},
        {json(R"({"mode":"form"})"), "it has no message"},
        {json(R"({"mode":"dialog","message":"m"})"), "its mode is neither form nor url"},
        {json(R"({"mode":"url","message":"m","url":"javascript:void"})"),
         "its address is not a web address"},
        {json(R"({"mode":"url","message":"m"})"), "its address is not a web address"},
        {json(R"({"mode":"form","message":"m","requestedSchema":{"type":"array"}})"),
         "its form is not an object with properties"},
        {form(R"({"a":{"type":"date"}})"), "field a has no known type"},
        {form(R"({"a":3})"), "field a is not an object"},
        {form(R"({"a":{"type":"string","enum":[1]}})"), "the choices of a are not texts"},
        {form(R"({"a":{"type":"string","enum":[]}})"), "field a has no choices or too many"},
        {form(R"({"a":{"type":"array"}})"), "the choices of a are missing"},
        {form(R"({"a":{"type":"array","items":{"anyOf":[{"title":"no value"}]}}})"),
         "the choices of a are not readable"},
        {form(R"({"a":{"type":"string"}})", R"([1])"), "its required fields are not texts"},
    };
    for (const Case& c : cases) {
        const auto parsed = parseElicitation(c.params);
        if (c.error)
            EXPECT_EQ(parsed.ok() ? QString() : parsed.error(), c.error) << c.params.textFormUtf8();
        else
            EXPECT_TRUE(parsed.ok()) << parsed.error().toStdString();
    }
    const ElicitationRequest read = parseElicitation(cases[0].params).value();
    ASSERT_EQ(read.fields.size(), 8u);
    EXPECT_EQ(read.fields[3].optionTitles, QStringList({"X", "Y"}));
    EXPECT_EQ(read.fields[4].kind, ElicitationField::Kind::Choice);
    EXPECT_EQ(read.fields[6].kind, ElicitationField::Kind::Choices);
    EXPECT_EQ(read.fields[6].options, QStringList({"w"}));

    std::string many = "{";
    for (int i = 0; i <= maximumElicitationFields; ++i)
        many += (i ? ",\"f" : "\"f") + std::to_string(i) + R"(":{"type":"string"})";
    EXPECT_EQ(parseElicitation(form((many + "}").c_str())).error(), "its form has too many fields");
}

TEST(ElicitationContent, TypedValuesBecomeTheContentOrSayWhatIsMissing)
{
    const ElicitationRequest request =
        parseElicitation(form(R"({"name":{"type":"string","title":"Name"},
                     "count":{"type":"integer","minimum":1,"maximum":5,"default":2},
                     "ok":{"type":"boolean"},
                     "size":{"type":"string","oneOf":[{"const":"s","title":"Small"},{"const":"l","title":"Large"}]},
                     "tags":{"type":"array","items":{"type":"string","enum":["a","b","a, b"]}},
                     "pick":{"type":"string","oneOf":[{"const":"x","title":"Y"},{"const":"y","title":"X"}]}})",
                              R"(["name","ok"])"))
            .value();
    struct Case {
        std::map<QString, QString> values;
        const char* content; // nullptr: refused with error
        const char* error;
    };
    const Case cases[] = {
        {{{"name", "Ada"}, {"ok", "yes"}}, R"({"name":"Ada","count":2,"ok":true})", nullptr},
        {{{"name", "Ada"}, {"ok", "no"}, {"count", "4"}, {"size", "large"}, {"tags", "a, b"}},
         R"({"name":"Ada","count":4,"ok":false,"size":"l","tags":["a, b"]})",
         nullptr},
        // A value with a comma is one choice; a value is matched before any title.
        {{{"name", "Ada"}, {"ok", "yes"}, {"tags", "a, b, b"}, {"pick", "y"}},
         R"({"name":"Ada","count":2,"ok":true,"tags":["a, b","b"],"pick":"y"})",
         nullptr},
        {{{"name", "Ada"}, {"ok", "yes"}, {"tags", "b, a, b"}, {"pick", "x"}},
         R"({"name":"Ada","count":2,"ok":true,"tags":["b","a, b"],"pick":"x"})",
         nullptr},
        {{{"ok", "yes"}}, nullptr, "Name is required."},
        {{{"name", "Ada"}}, nullptr, "ok is required."},
        {{{"name", "Ada"}, {"ok", "yes"}, {"count", "2.5"}},
         nullptr,
         "count needs a whole number."},
        {{{"name", "Ada"}, {"ok", "yes"}, {"count", "9"}}, nullptr, "count is out of range."},
        {{{"name", "Ada"}, {"ok", "yes"}, {"size", "medium"}},
         nullptr,
         "size needs one of its choices."},
        {{{"name", "Ada"}, {"ok", "yes"}, {"tags", "a, c"}},
         nullptr,
         "tags needs its choices, separated by commas."},
    };
    for (const Case& c : cases) {
        const auto content = elicitationContent(request, c.values);
        if (c.content)
            EXPECT_EQ(content.ok() ? content.value() : JSONValue(content.error()), json(c.content));
        else
            EXPECT_EQ(content.ok() ? QString() : content.error(), c.error);
    }
}

TEST(PermissionsRequest, EveryGrantIsShownOrTheRequestIsUnreadableAndAnswersFollowTheDecision)
{
    QString many, manyLines = QStringLiteral("Network access");
    for (int i = 0; i < 60; ++i) {
        many += (i ? QStringLiteral(",\"/srv/%1\"") : QStringLiteral("\"/srv/%1\"")).arg(i);
        manyLines += QStringLiteral("\nWrite: /srv/%1").arg(i);
    }
    const QString longPath = QStringLiteral("/home/ada/") + QString(1990, QLatin1Char('x'));
    struct Case {
        QString params;
        std::optional<QString> lines; // joined by line breaks; nothing: unreadable
    };
    const Case cases[] = {
        {R"({"permissions":{"fileSystem":{"read":["/etc/app"],"write":["/var/app"],
            "entries":[{"access":"write","path":{"type":"path","path":"/srv"}},
                       {"access":"deny","path":{"type":"glob_pattern","pattern":"**/.env"}}]},
            "network":{"enabled":true}}})",
         "Network access\nRead: /etc/app\nWrite: /var/app\nWrite: /srv\nNo access: **/.env"},
        {R"({"permissions":{"fileSystem":{"entries":[
            {"access":"write","path":{"type":"special","value":{"kind":"root"}}},
            {"access":"read","path":{"type":"special","value":{"kind":"project_roots","subpath":"docs"}}},
            {"access":"write","path":{"type":"special","value":{"kind":"tmpdir"}}},
            {"access":"read","path":{"type":"special","value":{"kind":"unknown","path":"/opt/x"}}}]}}})",
         "Write: the whole disk\nRead: the session's project folders, within it docs\n"
         "Write: the temporary folder\nRead: /opt/x"},
        {R"({"permissions":{"fileSystem":{"write":[)" + many + R"(]},"network":{"enabled":true}}})",
         manyLines},
        {R"({"permissions":{"fileSystem":{"read":[")" + longPath + R"("]}}})", "Read: " + longPath},
        {"[]", ""},
        {R"({"permissions":{"network":{"enabled":false}}})", ""},
        {R"({"permissions":"all"})", std::nullopt},
        {R"({"permissions":{"fileSystem":{"write":["/var/app",7]}}})", std::nullopt},
        {R"({"permissions":{"fileSystem":{"entries":[{"access":"none","path":{"path":"/x"}}]}}})",
         std::nullopt},
        {R"({"permissions":{"fileSystem":{"entries":[{"access":"write","path":{"type":"special","value":{"kind":"everything"}}}]}}})",
         std::nullopt},
        {R"({"permissions":{"macos":{"all":true}}})", std::nullopt},
        {R"({"permissions":{"network":{"enabled":"yes"}}})", std::nullopt},
        {R"({"permissions":{"fileSystem":{"read":["/)" + QString(5000, QLatin1Char('y')) +
             R"("]}}})",
         std::nullopt},
    };
    for (const Case& c : cases) {
        const std::optional<QStringList> lines =
            requestedPermissionLines(json(c.params.toUtf8().constData()));
        EXPECT_EQ(lines ? std::optional(lines->join(QLatin1Char('\n'))) : std::nullopt, c.lines)
            << c.params.left(120).toStdString();
    }
    const JSONValue params = json(cases[0].params.toUtf8().constData());
    EXPECT_EQ(permissionsResponse(params, "accept"),
              JSONValue::object({{"permissions", *params.find("permissions")}, {"scope", "turn"}}));
    EXPECT_EQ(
        permissionsResponse(params, "acceptForSession"),
        JSONValue::object({{"permissions", *params.find("permissions")}, {"scope", "session"}}));
    EXPECT_EQ(permissionsResponse(params, "decline"), json(R"({"permissions":{},"scope":"turn"})"));
}
