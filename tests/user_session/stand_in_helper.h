#ifndef OSTREL_TESTS_USER_SESSION_STAND_IN_HELPER_H
#define OSTREL_TESTS_USER_SESSION_STAND_IN_HELPER_H

// What a test tells the stand-in helper, which inherits its environment.

namespace ostrel::test {

// One of the words below.
constexpr wchar_t BEHAVIOUR_VARIABLE[] = L"OSTREL_STAND_IN_BEHAVIOUR";

// The text of the reply. {id} stands for the response identifier of the request with its length in front, as
// it belongs into a reply.
constexpr wchar_t REPLY_VARIABLE[] = L"OSTREL_STAND_IN_REPLY";
constexpr wchar_t IDENTIFIER_MARK[] = L"{id}";

// When set, the reply is filled up with the filler to so many units.
constexpr wchar_t UNITS_VARIABLE[] = L"OSTREL_STAND_IN_UNITS";
constexpr wchar_t FILLER = L'x';

// The program that TAKE_THE_NAME starts: the helper whose pipe's name is taken.
constexpr wchar_t RIVAL_VARIABLE[] = L"OSTREL_STAND_IN_RIVAL";
// In the reply: with which exit code it ended.
constexpr wchar_t EXIT_CODE_MARK[] = L"{exit}";

// Set when the library's request is over.
constexpr wchar_t OVER_EVENT[] = L"OstrelStandInHelperRequestIsOver";

constexpr wchar_t END_AT_ONCE[] = L"end at once";
constexpr wchar_t HANG[] = L"hang";
constexpr wchar_t MAKE_THE_PIPE_LATE[] = L"make the pipe late";
constexpr wchar_t MAKE_THE_PIPE_TOO_LATE[] = L"make the pipe too late";
constexpr wchar_t HEAR_AND_END[] = L"hear and end";
constexpr wchar_t HEAR_AND_HANG[] = L"hear and hang";
constexpr wchar_t ANSWER[] = L"answer";
constexpr wchar_t ANSWER_LATE[] = L"answer late";
constexpr wchar_t ANSWER_TWICE[] = L"answer twice";
constexpr wchar_t ANSWER_AND_STAY[] = L"answer and stay";
constexpr wchar_t TAKE_THE_NAME[] = L"take the name";

// Early enough for the library, which looks for the pipe for two seconds.
constexpr unsigned long LATE_PIPE_MILLISECONDS = 700;
// How late an answer is, and for how long the helper hangs after a request: beyond the time-out of two
// seconds that the library names to the system.
constexpr unsigned long LATE_ANSWER_MILLISECONDS = 2500;

}  // namespace ostrel::test

#endif
