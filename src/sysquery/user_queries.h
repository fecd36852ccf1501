#ifndef OSTREL_SYSQUERY_USER_QUERIES_H
#define OSTREL_SYSQUERY_USER_QUERIES_H

namespace ostrel {

// What Windows Management Instrumentation knows about users. Each call initialises COM for the calling thread
// in the multithreaded apartment, and so fails on a thread of a single-threaded one. A call sets one of its
// two outputs to a new string of OstrelFilterLibUtil::AllocStringPointer and leaves the other as it is.

// The user logged on at the console, as DOMAIN\user; an empty text when there is none.
void GetCurrentUserNameAndDomain(wchar_t** result, wchar_t** error);

// The directories of all user profiles, each followed by a semicolon, the last one included.
void GetAllUserDirectories(wchar_t** result, wchar_t** error);

}  // namespace ostrel

#endif
