#pragma once

#include "peer/JSONValue.h"
#include "platform/Result.h"

#include <QStringList>

#include <map>
#include <optional>
#include <vector>

namespace nimbrel {

// What a tool server asks the user to fill in, one field of its form.
struct ElicitationField {
    enum class Kind { Text, Number, Integer, Boolean, Choice, Choices };
    QString name;
    Kind kind = Kind::Text;
    QString title; // the name where the server gives none
    QString description;
    bool required = false;
    JSONValue defaultValue;   // null where none
    QStringList options;      // the values a choice sends, in order
    QStringList optionTitles; // what the user reads for each
    std::optional<double> minimum, maximum;

    friend bool operator==(const ElicitationField&, const ElicitationField&) = default;
};

// `mcpServer/elicitation/request`: a form to fill in, or an address to visit.
struct ElicitationRequest {
    QString serverName;
    QString message;
    bool isURL = false;
    QString url;
    std::vector<ElicitationField> fields;

    friend bool operator==(const ElicitationRequest&, const ElicitationRequest&) = default;
};

inline constexpr int maximumElicitationFields = 64;
inline constexpr int maximumElicitationOptions = 200;

// The request, or why it cannot be shown: no object, no text message, an unknown mode, an address
// that is not http(s), a form whose schema is not an object of known primitive fields, or more
// fields or options than anyone could fill in.
Result<ElicitationRequest, QString> parseElicitation(const JSONValue& params);

// The `content` of an `accept` for values the user gave as text, by field name (a boolean as
// "true"/"false", several choices joined by ", "), or what is wrong with them. Fields left blank
// take their defaults; a required field with neither is refused.
Result<JSONValue, QString> elicitationContent(const ElicitationRequest& request,
                                              const std::map<QString, QString>& values);

// Everything `item/permissions/requestApproval` would grant, one line each: "Network access"
// first, then "Read: <place>", "Write: <place>" and "No access: <place>", a place being a path, a
// pattern or a special place by its name ("the whole disk"). Nothing where any of it cannot be read
// in full (a key, kind or access this bridge does not know, more than maximumGrantLines lines, a
// path longer than maximumGrantPathCharacters): such a request must be refused, since whatever is
// granted must have been seen. No permissions at all give no lines.
inline constexpr int maximumGrantLines = 1000;
inline constexpr int maximumGrantPathCharacters = 4096;
std::optional<QStringList> requestedPermissionLines(const JSONValue& params);
// How many of those lines show before "and N more".
inline constexpr int shownGrantLines = 12;

// The answer to `item/permissions/requestApproval` for a decision of the approval sheet:
// "accept" grants what was asked for this turn, "acceptForSession" for the session, anything
// else grants nothing.
JSONValue permissionsResponse(const JSONValue& params, const QString& decision);

} // namespace nimbrel
