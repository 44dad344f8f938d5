#include "workspace/ServerRequestRecords.h"

#include <QUrl>

#include <cmath>
#include <map>

namespace nimbrel {

namespace {

QString textAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found && found->isString() ? *found->stringValue() : QString();
}

std::optional<double> numberAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found ? found->numberValue() : std::nullopt;
}

// The texts of an array of texts, or nothing when it is not one.
std::optional<QStringList> textsOf(const JSONValue* value)
{
    if (!value || !value->isArray())
        return std::nullopt;
    QStringList texts;
    for (const JSONValue& item : value->items()) {
        if (!item.isString())
            return std::nullopt;
        texts.append(*item.stringValue());
    }
    return texts;
}

// Options given as [{"const", "title"}], or nothing when they are not.
bool readTitledOptions(const JSONValue* list, ElicitationField& field)
{
    if (!list || !list->isArray())
        return false;
    for (const JSONValue& option : list->items()) {
        const JSONValue* value = option.find("const");
        if (!value || !value->isString())
            return false;
        field.options.append(*value->stringValue());
        const QString title = textAt(option, "title");
        field.optionTitles.append(title.isEmpty() ? *value->stringValue() : title);
    }
    return true;
}

Result<ElicitationField, QString> parseField(const QString& name, const JSONValue& schema)
{
    ElicitationField field;
    field.name = name;
    if (!schema.isObject())
        return QStringLiteral("field %1 is not an object").arg(name);
    field.title = textAt(schema, "title");
    if (field.title.isEmpty())
        field.title = name;
    field.description = textAt(schema, "description");
    if (const JSONValue* given = schema.find("default"))
        field.defaultValue = *given;
    field.minimum = numberAt(schema, "minimum");
    field.maximum = numberAt(schema, "maximum");
    const QString type = textAt(schema, "type");
    if (type == QLatin1String("string")) {
        if (const std::optional<QStringList> values = textsOf(schema.find("enum"))) {
            field.kind = ElicitationField::Kind::Choice;
            field.options = *values;
            field.optionTitles = textsOf(schema.find("enumNames")).value_or(*values);
            if (field.optionTitles.size() != field.options.size())
                field.optionTitles = *values;
        } else if (schema.find("oneOf")) {
            field.kind = ElicitationField::Kind::Choice;
            if (!readTitledOptions(schema.find("oneOf"), field))
                return QStringLiteral("the choices of %1 are not readable").arg(name);
        } else if (schema.find("enum")) {
            return QStringLiteral("the choices of %1 are not texts").arg(name);
        } else {
            field.kind = ElicitationField::Kind::Text;
        }
    } else if (type == QLatin1String("number")) {
        field.kind = ElicitationField::Kind::Number;
    } else if (type == QLatin1String("integer")) {
        field.kind = ElicitationField::Kind::Integer;
    } else if (type == QLatin1String("boolean")) {
        field.kind = ElicitationField::Kind::Boolean;
    } else if (type == QLatin1String("array")) {
        field.kind = ElicitationField::Kind::Choices;
        const JSONValue* items = schema.find("items");
        if (!items || !items->isObject())
            return QStringLiteral("the choices of %1 are missing").arg(name);
        if (const std::optional<QStringList> values = textsOf(items->find("enum"))) {
            field.options = *values;
            field.optionTitles = *values;
        } else if (!readTitledOptions(items->find("anyOf"), field)) {
            return QStringLiteral("the choices of %1 are not readable").arg(name);
        }
    } else {
        return QStringLiteral("field %1 has no known type").arg(name);
    }
    if ((field.kind == ElicitationField::Kind::Choice ||
         field.kind == ElicitationField::Kind::Choices) &&
        (field.options.isEmpty() || field.options.size() > maximumElicitationOptions))
        return QStringLiteral("field %1 has no choices or too many").arg(name);
    return field;
}

std::optional<bool> booleanFrom(const QString& text)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("true") || word == QLatin1String("yes") || word == QLatin1String("1"))
        return true;
    if (word == QLatin1String("false") || word == QLatin1String("no") || word == QLatin1String("0"))
        return false;
    return std::nullopt;
}

// The option a typed text names: its value exactly, else its title exactly, else its title in any
// case.
std::optional<QString> optionNamed(const ElicitationField& field, const QString& typed)
{
    for (const auto sensitivity : {0, 1, 2})
        for (qsizetype index = 0; index < field.options.size(); ++index) {
            const QString& title = field.optionTitles.value(index);
            if ((sensitivity == 0 && typed == field.options[index]) ||
                (sensitivity == 1 && typed == title) ||
                (sensitivity == 2 && typed.compare(title, Qt::CaseInsensitive) == 0))
                return field.options[index];
        }
    return std::nullopt;
}

// The options a text of several names, separated by commas, chooses: at each place the longest
// name that ends there or at a comma, so that a value holding a comma is one choice.
std::optional<std::vector<JSONValue>> optionsNamed(const ElicitationField& field,
                                                   const QString& typed)
{
    std::vector<JSONValue> chosen;
    QString rest = typed.trimmed();
    while (!rest.isEmpty()) {
        qsizetype best = -1;
        std::optional<QString> option;
        for (qsizetype end = rest.indexOf(QLatin1Char(','));;
             end = rest.indexOf(QLatin1Char(','), end + 1)) {
            const qsizetype length = end < 0 ? rest.size() : end;
            if (const std::optional<QString> named =
                    optionNamed(field, rest.left(length).trimmed()))
                best = length, option = named;
            if (end < 0)
                break;
        }
        if (!option)
            return std::nullopt;
        chosen.emplace_back(*option);
        rest = rest.mid(best);
        while (rest.startsWith(QLatin1Char(',')) || rest.startsWith(QLatin1Char(' ')))
            rest.remove(0, 1);
    }
    return chosen;
}

Result<JSONValue, QString> fieldValue(const ElicitationField& field, const QString& typed)
{
    using Kind = ElicitationField::Kind;
    switch (field.kind) {
    case Kind::Text:
        return JSONValue(typed);
    case Kind::Number:
    case Kind::Integer: {
        bool ok = false;
        const double number = typed.trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(number) ||
            (field.kind == Kind::Integer && number != std::trunc(number)))
            return field.title + (field.kind == Kind::Integer
                                      ? QStringLiteral(" needs a whole number.")
                                      : QStringLiteral(" needs a number."));
        if ((field.minimum && number < *field.minimum) ||
            (field.maximum && number > *field.maximum))
            return field.title + QStringLiteral(" is out of range.");
        return JSONValue(number);
    }
    case Kind::Boolean: {
        const std::optional<bool> value = booleanFrom(typed);
        if (!value)
            return field.title + QStringLiteral(" needs yes or no.");
        return JSONValue(*value);
    }
    case Kind::Choice: {
        const std::optional<QString> option = optionNamed(field, typed.trimmed());
        if (!option)
            return field.title + QStringLiteral(" needs one of its choices.");
        return JSONValue(*option);
    }
    case Kind::Choices: {
        std::optional<std::vector<JSONValue>> chosen = optionsNamed(field, typed);
        if (!chosen)
            return field.title + QStringLiteral(" needs its choices, separated by commas.");
        return JSONValue::array(std::move(*chosen));
    }
    }
    return JSONValue();
}

} // namespace

Result<ElicitationRequest, QString> parseElicitation(const JSONValue& params)
{
    if (!params.isObject())
        return QStringLiteral("the request is not an object");
    ElicitationRequest request;
    request.serverName = textAt(params, "serverName");
    const JSONValue* message = params.find("message");
    if (!message || !message->isString())
        return QStringLiteral("it has no message");
    request.message = *message->stringValue();
    const QString mode = textAt(params, "mode");
    if (mode == QLatin1String("url")) {
        request.isURL = true;
        request.url = textAt(params, "url");
        const QUrl url(request.url, QUrl::StrictMode);
        if (!url.isValid() ||
            (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http")) ||
            url.host().isEmpty())
            return QStringLiteral("its address is not a web address");
        return request;
    }
    if (mode != QLatin1String("form"))
        return QStringLiteral("its mode is neither form nor url");
    const JSONValue* schema = params.find("requestedSchema");
    const JSONValue* properties = schema ? schema->find("properties") : nullptr;
    if (!schema || textAt(*schema, "type") != QLatin1String("object") || !properties ||
        !properties->isObject())
        return QStringLiteral("its form is not an object with properties");
    if (properties->members().size() > static_cast<std::size_t>(maximumElicitationFields))
        return QStringLiteral("its form has too many fields");
    std::optional<QStringList> required = QStringList();
    if (const JSONValue* given = schema->find("required"); given && !given->isNull())
        required = textsOf(given);
    if (!required)
        return QStringLiteral("its required fields are not texts");
    for (const JSONMember& member : properties->members()) {
        const QString name = *member.key.stringValue();
        Result<ElicitationField, QString> field = parseField(name, member.value);
        if (!field.ok())
            return field.error();
        ElicitationField parsed = std::move(field).value();
        parsed.required = required->contains(name);
        request.fields.push_back(std::move(parsed));
    }
    return request;
}

Result<JSONValue, QString> elicitationContent(const ElicitationRequest& request,
                                              const std::map<QString, QString>& values)
{
    std::vector<std::pair<std::string, JSONValue>> content;
    for (const ElicitationField& field : request.fields) {
        const auto typed = values.find(field.name);
        const bool blank = typed == values.end() || typed->second.trimmed().isEmpty();
        if (blank && field.kind != ElicitationField::Kind::Text) {
            if (!field.defaultValue.isNull())
                content.emplace_back(field.name.toStdString(), field.defaultValue);
            else if (field.required)
                return field.title + QStringLiteral(" is required.");
            continue;
        }
        if (blank && field.kind == ElicitationField::Kind::Text &&
            (typed == values.end() || typed->second.isEmpty())) {
            if (field.defaultValue.isString())
                content.emplace_back(field.name.toStdString(), field.defaultValue);
            else if (field.required)
                return field.title + QStringLiteral(" is required.");
            continue;
        }
        Result<JSONValue, QString> value = fieldValue(field, typed->second);
        if (!value.ok())
            return value.error();
        content.emplace_back(field.name.toStdString(), value.value());
    }
    return JSONValue::object(std::move(content));
}

namespace {

// The name of a special path, or nothing for a kind this bridge does not know.
std::optional<QString> specialPathName(const JSONValue& value)
{
    const QString kind = textAt(value, "kind");
    const QString subpath = textAt(value, "subpath");
    const auto within = [&](const QString& name) {
        return subpath.isEmpty() ? name : name + QStringLiteral(", within it ") + subpath;
    };
    if (kind == QLatin1String("root"))
        return QStringLiteral("the whole disk");
    if (kind == QLatin1String("minimal"))
        return QStringLiteral("the system files every command needs");
    if (kind == QLatin1String("project_roots"))
        return within(QStringLiteral("the session's project folders"));
    if (kind == QLatin1String("tmpdir"))
        return QStringLiteral("the temporary folder");
    if (kind == QLatin1String("slash_tmp"))
        return QStringLiteral("/tmp");
    if (kind == QLatin1String("unknown") && !textAt(value, "path").isEmpty())
        return within(textAt(value, "path"));
    return std::nullopt;
}

// Where an entry's path points, or nothing where it cannot be read.
std::optional<QString> entryPlace(const JSONValue& path)
{
    if (!path.isObject())
        return std::nullopt;
    const QString type = textAt(path, "type");
    if (type == QLatin1String("special"))
        return path.find("value") ? specialPathName(*path.find("value")) : std::nullopt;
    if ((type.isEmpty() || type == QLatin1String("path")) && !textAt(path, "path").isEmpty())
        return textAt(path, "path");
    if ((type.isEmpty() || type == QLatin1String("glob_pattern")) &&
        !textAt(path, "pattern").isEmpty())
        return textAt(path, "pattern");
    return std::nullopt;
}

bool onlyKeys(const JSONValue& object, std::initializer_list<std::string_view> keys)
{
    for (const JSONMember& member : object.members())
        if (std::find(keys.begin(), keys.end(), member.name()) == keys.end())
            return false;
    return true;
}

const JSONValue* present(const JSONValue& object, std::string_view key)
{
    const JSONValue* found = object.find(key);
    return found && !found->isNull() ? found : nullptr;
}

} // namespace

std::optional<QStringList> requestedPermissionLines(const JSONValue& params)
{
    QStringList lines;
    const JSONValue* permissions = present(params, "permissions");
    if (!permissions)
        return lines;
    if (!permissions->isObject() || !onlyKeys(*permissions, {"fileSystem", "network"}))
        return std::nullopt;
    if (const JSONValue* network = present(*permissions, "network")) {
        if (!network->isObject() || !onlyKeys(*network, {"enabled"}))
            return std::nullopt;
        const JSONValue* enabled = present(*network, "enabled");
        if (enabled && !enabled->isBool())
            return std::nullopt;
        if (enabled && *enabled->boolValue())
            lines.append(QStringLiteral("Network access"));
    }
    const JSONValue* fileSystem = present(*permissions, "fileSystem");
    if (!fileSystem)
        return lines;
    if (!fileSystem->isObject() ||
        !onlyKeys(*fileSystem, {"read", "write", "entries", "globScanMaxDepth"}))
        return std::nullopt;
    const auto add = [&](const QString& label, const QString& place) {
        if (place.size() > maximumGrantPathCharacters || lines.size() >= maximumGrantLines)
            return false;
        lines.append(label + place);
        return true;
    };
    for (const auto& [key, label] : {std::pair{"read", QStringLiteral("Read: ")},
                                     std::pair{"write", QStringLiteral("Write: ")}}) {
        const JSONValue* paths = present(*fileSystem, key);
        if (!paths)
            continue;
        if (!paths->isArray())
            return std::nullopt;
        for (const JSONValue& path : paths->items())
            if (!path.isString() || !add(label, *path.stringValue()))
                return std::nullopt;
    }
    if (const JSONValue* entries = present(*fileSystem, "entries")) {
        if (!entries->isArray())
            return std::nullopt;
        for (const JSONValue& entry : entries->items()) {
            const QString access = entry.isObject() ? textAt(entry, "access") : QString();
            const std::optional<QString> place =
                entry.find("path") ? entryPlace(*entry.find("path")) : std::nullopt;
            const QString label = access == QLatin1String("read")    ? QStringLiteral("Read: ")
                                  : access == QLatin1String("write") ? QStringLiteral("Write: ")
                                  : access == QLatin1String("deny")  ? QStringLiteral("No access: ")
                                                                     : QString();
            if (!place || label.isEmpty() || !add(label, *place))
                return std::nullopt;
        }
    }
    return lines;
}

JSONValue permissionsResponse(const JSONValue& params, const QString& decision)
{
    const bool grant =
        decision == QLatin1String("accept") || decision == QLatin1String("acceptForSession");
    const JSONValue* asked = params.find("permissions");
    return JSONValue::object(
        {{"permissions", grant && asked && asked->isObject() ? *asked : JSONValue::object({})},
         {"scope", decision == QLatin1String("acceptForSession") ? "session" : "turn"}});
}

} // namespace nimbrel
