#pragma once

#include "workspace/CodexWorkspace.h"

#include <algorithm>
#include <deque>

namespace nimbrel::test {

// Requests the workspace makes, answered when the test says.
struct RequesterDouble {
    struct Call {
        QString method;
        JSONValue params;
        AppServerClient::RequestCompletion completion;
    };
    std::deque<Call> calls; // a call stays where it is while later ones come

    CodexWorkspace::Requester requester()
    {
        return [this](const QString& method, const JSONValue& params,
                      AppServerClient::RequestCompletion completion) {
            calls.push_back({method, params, std::move(completion)});
        };
    }
    int count(const QString& method) const
    {
        return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                              [&](const Call& c) { return c.method == method; }));
    }
    // Answers the last thread/list asked for.
    void answerList(const AppServerClient::RequestResult& outcome)
    {
        last("thread/list").completion(outcome);
    }
    // The last call of method, which the test answers or reads.
    Call& last(const QString& method)
    {
        return *std::find_if(calls.rbegin(), calls.rend(),
                             [&](const Call& c) { return c.method == method; });
    }
};

} // namespace nimbrel::test
