#include "UserInputRecords.h"

#include <set>

namespace nimbrel {

namespace {

// A required text member; nothing where it is missing or of another type.
std::optional<QString> requiredText(const JSONValue& object, std::string_view key)
{
    const JSONValue* value = object.find(key);
    return value ? value->stringValue() : std::nullopt;
}

// A member that may be missing or null; false where it holds a value of another type.
template <class T, class Read>
bool readOptional(const JSONValue& object, std::string_view key, std::optional<T>& into, Read read)
{
    const JSONValue* value = object.find(key);
    if (!value || value->isNull())
        return true;
    into = read(*value);
    return into.has_value();
}

std::optional<UserInputQuestion::Option> parseOption(const JSONValue& value)
{
    const auto label = requiredText(value, "label");
    const auto description = requiredText(value, "description");
    if (!label || !description)
        return std::nullopt;
    return UserInputQuestion::Option{*label, *description};
}

std::optional<UserInputQuestion> parseQuestion(const JSONValue& value)
{
    UserInputQuestion question;
    const auto id = requiredText(value, "id");
    const auto header = requiredText(value, "header");
    const auto text = requiredText(value, "question");
    if (!id || !header || !text)
        return std::nullopt;
    question.id = *id;
    question.header = *header;
    question.question = *text;
    const bool optionsRead =
        readOptional(value, "options", question.options, [](const JSONValue& list) {
            std::optional<std::vector<UserInputQuestion::Option>> options;
            if (!list.isArray())
                return options;
            options.emplace();
            for (const JSONValue& element : list.items()) {
                auto option = parseOption(element);
                if (!option)
                    return decltype(options)();
                options->push_back(std::move(*option));
            }
            return options;
        });
    const bool secretRead = readOptional(value, "isSecret", question.isSecret,
                                         [](const JSONValue& flag) { return flag.boolValue(); });
    if (!optionsRead || !secretRead)
        return std::nullopt;
    return question;
}

bool isBlank(const QString& text)
{
    return text.trimmed().isEmpty();
}

// The answer a draft gives to its question, or nothing while it gives none.
std::optional<QString> draftAnswer(const UserInputQuestion& question,
                                   const UserInputAnswerDraft& draft)
{
    const qsizetype optionCount =
        question.options ? static_cast<qsizetype>(question.options->size()) : 0;
    if (!draft.usesCustomResponse && optionCount > 0) {
        if (!draft.selectedOption || *draft.selectedOption < 0 ||
            *draft.selectedOption >= optionCount)
            return std::nullopt;
        return (*question.options)[static_cast<std::size_t>(*draft.selectedOption)].label;
    }
    if (isBlank(draft.text))
        return std::nullopt;
    return draft.text;
}

} // namespace

UserInputAnswerDraft draftFor(const UserInputPrompt& prompt, const QString& questionID)
{
    const auto found = prompt.drafts.find(questionID);
    return found == prompt.drafts.end() ? UserInputAnswerDraft{} : found->second;
}

std::optional<UserInputRequest> parseUserInputRequest(const QString& id, const JSONValue& params)
{
    if (!params.isObject())
        return std::nullopt;
    UserInputRequest request;
    request.id = id;
    const auto threadID = requiredText(params, "threadId");
    const auto turnID = requiredText(params, "turnId");
    if (!threadID || threadID->isEmpty() || !turnID || turnID->isEmpty())
        return std::nullopt;
    request.threadID = *threadID;
    request.turnID = *turnID;
    const JSONValue* questions = params.find("questions");
    if (!questions || !questions->isArray() || questions->items().empty())
        return std::nullopt;
    std::set<QString> ids;
    for (const JSONValue& element : questions->items()) {
        auto question = parseQuestion(element);
        if (!question || question->id.isEmpty() || question->question.isEmpty() ||
            !ids.insert(question->id).second)
            return std::nullopt;
        request.questions.push_back(std::move(*question));
    }
    const JSONValue* blocking = params.find("isBlocking");
    request.isBlocking = blocking ? blocking->boolValue().value_or(true) : true;
    return request;
}

bool isCompleteResponse(const UserInputRequest& request, const JSONValue& response)
{
    const JSONValue* answers = response.find("answers");
    if (!answers || !answers->isObject() || answers->members().size() != request.questions.size())
        return false;
    for (const UserInputQuestion& question : request.questions) {
        const JSONValue* answer = answers->find(question.id.toStdString());
        const JSONValue* list = answer ? answer->find("answers") : nullptr;
        if (!list || !list->isArray() || list->items().size() != 1)
            return false;
        const std::optional<QString> text = list->items().front().stringValue();
        if (!text || isBlank(*text))
            return false;
    }
    // As many distinct keys as questions, each of them found: the sets are equal.
    return true;
}

std::optional<JSONValue> makeResponse(const UserInputPrompt& prompt)
{
    std::vector<std::pair<std::string, JSONValue>> answers;
    for (const UserInputQuestion& question : prompt.request.questions) {
        const std::optional<QString> answer = draftAnswer(question, draftFor(prompt, question.id));
        if (!answer)
            return std::nullopt;
        answers.emplace_back(question.id.toStdString(),
                             JSONValue::object({{"answers", JSONValue::array({*answer})}}));
    }
    return JSONValue::object({{"answers", JSONValue::object(std::move(answers))}});
}

TranscriptEntry answersEntry(const UserInputPrompt& prompt)
{
    QStringList blocks;
    for (const UserInputQuestion& question : prompt.request.questions) {
        const QString answer =
            question.isSecret.value_or(false)
                ? QStringLiteral("[Private response sent]")
                : draftAnswer(question, draftFor(prompt, question.id)).value_or(QString());
        blocks.append(question.question + QLatin1Char('\n') + answer);
    }
    TranscriptEntry entry;
    entry.id = QStringLiteral("answer-") + prompt.request.id;
    entry.kind = TranscriptKind::User;
    entry.title = QStringLiteral("Your answers");
    entry.text = blocks.join(QStringLiteral("\n\n"));
    return entry;
}

} // namespace nimbrel
