#ifndef OSTREL_API_EXPORTS_H
#define OSTREL_API_EXPORTS_H

/*
 * OstrelFilterLib.dll: the one header that a host includes.
 *
 * First the functions and callback types, usable from C and so from every language that can call C; then, for
 * C++ only, the exported classes. A C compiler sees the first part alone, and it is all that a host needs.
 *
 * Rules
 *
 *  1. 64-bit Windows only. Functions and callbacks use the platform's one calling convention. Exported
 *     functions have undecorated names.
 *  2. Texts are NUL-terminated UTF-16. Counts of texts are numbers of elements. Times are milliseconds since
 *     1970-01-01 00:00 UTC. Sizes are bytes.
 *  3. Booleans are bytes: 0 is false, everything else true; results are 0 or 1.
 *  4. The library reads texts and arrays only during the call and copies what it keeps; the caller keeps what
 *     it passed. A count of 0 or less, or a null array, is an empty list; so is an unsigned count beyond
 *     2147483647. A null text is an empty one.
 *  5. What a callback receives belongs to the library and is valid only during the call. The host copies what
 *     it keeps. No text that a callback receives is null; what is unknown is empty.
 *  6. Threads. Any thread may call any function. All of them but EnableTabTitles, DisableTabTitles, the
 *     getters of strings and DeallocStringPointer run one at a time, under one recursive lock. The log
 *     callback runs on whatever thread has something to say, on several at once. The event callbacks run on
 *     the library's disk event thread, one at a time, under the report lock: a callback that takes long
 *     delays every later report.
 *  7. From an event callback a host may call those that take no lock. Any other function may have to wait
 *     there for UnloadDriver, which waits for the very thread that the callback runs on and gives up on it
 *     after 3 seconds. From the log callback call nothing: it may run while locks are held.
 *  8. No exception leaves a function of the library. A callback should let none out either; one that does
 *     loses that report or line.
 *  9. Failures are told by a false result where there is one and by log lines of level 3: one names the
 *     system call that failed and ends with its code, one after it may name the step. A call that has nothing
 *     to do says so at level 6 or 7. So pass a log callback before anything can fail. Each function below
 *     lists the lines of its own, without their prefix; those of the system calls beneath it, with cause and
 *     cure, are in docs/troubleshooting.md. When memory is short, a function returns false, or returns
 *     without having done all, and the library goes on.
 * 10. Unloading. The first call of any function but the getters of strings and DeallocStringPointer makes the
 *     library stay in the process until that ends, because its threads may outlive UnloadDriver. So a host
 *     may call FreeLibrary at any time, and it takes nothing away: functions and callbacks work as before,
 *     and LoadLibrary finds the library in the state that it has. Until that call FreeLibrary unloads it. A
 *     process may end without UnloadDriver; the minifilter then stays loaded until a LoadDriver replaces it.
 * 11. Once UnloadDriver has returned, no event callback runs until the next LoadDriver, unless the log says
 *     "Disk Event thread never ended.": the thread that calls them then finishes its pass, with a call for
 *     each event still to be reported, however long that takes. So what a callback uses must live until the
 *     process ends. The log callback may run in any case: the notification thread, which nobody waits for,
 *     writes its last line when it ends. Callbacks, user name, paths and what is cached stay, for the next
 *     LoadDriver to go on with. The functions that switch detection go on working, but where the minifilter
 *     is gone they can tell nobody.
 * 12. The minifilter can go while the library runs: someone unloads it, or another host loads its own. Only
 *     the log tells, by one of two lines, of level 6 and 3:
 *         Driver unloaded.
 *         Error getting message while receiving notifications: HResult: 80070006
 *     Nothing new is seen after it, but what was seen is still reported within about a minute. To go on, call
 *     UnloadDriver, LoadDriver and the Enable functions again, from a thread of the host's own and not from
 *     the log callback. The library still has the paths of earlier calls, so pass none the second time.
 *     UnloadDriver itself brings one of the two as well. If it logs "Disk Event thread never ended.", which a
 *     name server or a file server that does not answer can bring about as well as a slow callback, and the
 *     next LoadDriver "Disk Event thread already started!", nothing is reported or forgotten from the end of
 *     that thread on, and what is cached grows: call UnloadDriver and LoadDriver once more a little later.
 * 13. What only the interactive user's session can tell, the library asks OstrelUserHelper.exe, which it
 *     starts anew for each question: tab titles, metadata of files on network drives, and the functions on
 *     strings that end in ForSystem. From a service of the local system account it starts
 *     nlib\OstrelUserHelper.exe as the user, from any other program OstrelUserHelper.exe as itself, either
 *     relative to the current directory of the process. The thread that needs the answer waits for it: 40
 *     times the pipe's own patience and 2 seconds at most for the helper to come up, then 2 seconds
 *     (metadata: 10) at most for a pipe that is busy, and then until the helper answers or closes the pipe.
 *     The library sets no bound to this last wait; OstrelUserHelper.exe does: it closes the pipe 2 seconds
 *     (metadata: 10) after it was asked, answer or not. Another program in its place, or one that the user
 *     suspends, can keep the thread waiting for ever, and with the notification thread UnloadDriver: the
 *     minifilter does not go before its last message is answered, or it gives up waiting. Tab titles are
 *     asked for on the notification thread, after the driver has its acknowledgement, while the cache that
 *     the event goes to is locked; metadata on the disk event thread, under the report lock.
 */

#include <stdint.h>
#include <wchar.h>

#include "util/export.h"

/* The module-definition file gives the functions their names, so only importers need an attribute. */
#if defined(OSTREL_BUILDING_LIBRARY)
#define OSTREL_FUNCTION
#else
#define OSTREL_FUNCTION OSTREL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Receives one log line.
 *
 * text   "OstrelFilterDriver: " and the message, at most 1023 characters.
 * level  3 something failed, 6 a state changed or something was detected, 7 detail.
 *
 * Runs on the host's own threads during calls, on the notification thread, on the disk event thread and on
 * the packet reader's thread, at the same time, and now and then while a lock of the library is held. It must
 * return soon and wait for no other thread: one that waits for a thread inside a function of the library
 * stops both for good, and while it blocks, UnloadDriver and DisableRemoteAddressInfo may take longer than
 * they say.
 */
typedef void (*LogCallback)(const wchar_t* text, uint32_t level);

/*
 * Receives one upload or download.
 *
 * fileName        Full path, with a drive letter or as \\server\share; in device form where there is neither.
 * processName     Image path of the process in device form, such as \Device\HarddiskVolume3\...\chrome.exe.
 * user            Account name (without domain) of the process's user, or "User not identified".
 * endTime         Time of the latest read or write.
 * fileEventType   0 upload, 1 download.
 * streamCount     Number of network streams that may have carried the file. One: the best match, or the only
 *                 one there is. More: none matched, and these are all the process has, largest first. 0
 *                 while remote address info is off.
 * addresses       streamCount address texts.
 * ports           streamCount remote ports.
 * hostNames       streamCount host names, empty where the reverse look-up failed; always empty for IPv6.
 * hintCount       Number of destination hints.
 * hints           hintCount titles of the process's main window, or else of its parent's, when the file was
 *                 first touched. The helper of this library finds one at most, and none of other tabs.
 * tabTitleStatus  How the look-up of the titles went, as one of the words below; empty while capture is off.
 * isNetworkDrive  1 when the file is on a network drive, and only then the rest is filled. Without metadata
 *                 it is empty but for the status, and the upload counts as complete.
 * sha256Hex       Digest of the file, in hexadecimal digits.
 * md5Hex          Digest of the file, in hexadecimal digits.
 * fileSize        Low 32 bits of the file's size.
 * metadataStatus  How the look-up of size and digests went, as one of the words below.
 * extraText       What else the look-up returned.
 *
 * An array whose count is 0 is empty, not null. Runs on the disk event thread, under the report lock.
 *
 * The words of both look-ups, where "x" is TABTITLE or METADATA:
 *
 *   x_SUCCESS                The helper answered.
 *   TABTITLE_NO_TITLE_FOUND  It answered, but with no title.
 *   METADATA_FILE_NOT_FOUND  It answered, but with no digest.
 *   INVALID_COMMANDID,
 *   INVALID_CHANNELNAME      The system gave no random numbers to make identifiers from.
 *   NO_LOGGEDIN_USER         Nobody is at the machine: no session but that of the services is active.
 *   NO_ENV_CREATED           The user has no environment.
 *   PROCCREATE_FAILURE       The helper cannot be started; most often, it is not where it is sought.
 *   PIPE_NOT_AVAILABLE       The helper was started and did not come up in time.
 *   x_CONNECT_PIPE_FAILED    It came up and ended without an answer, or gave too long a one.
 *   x_DESERIALIZE_FAILURE    Its answer makes no sense.
 *
 * Any other is the name of a ResponseCode, by which the helper or the reader of its answer says what went
 * wrong; "UNKNOWN_ERROR" for one without a name. Empty when memory ran out.
 */
typedef void (*ActivityEventCallback)(const wchar_t* fileName, const wchar_t* processName,
                                      const wchar_t* user, uint64_t endTime, uint32_t fileEventType,
                                      int32_t streamCount, wchar_t** addresses, uint32_t* ports,
                                      wchar_t** hostNames, int32_t hintCount, wchar_t** hints,
                                      const wchar_t* tabTitleStatus, uint8_t isNetworkDrive,
                                      const wchar_t* sha256Hex, const wchar_t* md5Hex, uint32_t fileSize,
                                      const wchar_t* metadataStatus, const wchar_t* extraText);

/*
 * Receives one event in a cloud drive's folders.
 *
 * fileEventType   4 to 9, as the minifilter numbers cloud-drive events. The others as above.
 *
 * Runs on the disk event thread, under the report lock.
 */
typedef void (*PcdEventCallback)(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                                 uint64_t endTime, uint32_t fileEventType);

/*
 * Installs both drivers from OstrelFilter.inf, OstrelFilter.sys, OstrelNWFilter.inf and OstrelNWFilter.sys
 * beside the library, loads the minifilter, connects to it and starts the library's threads. Detection starts
 * off.
 *
 * A minifilter that is loaded already is unloaded first, also when another process uses it. The first load on
 * a machine logs "OpenService failed (1060)." at level 3: there is no network driver service to stop yet.
 *
 * logCallback  Receives the log from now on, also from a load that fails; null for no log.
 * logLevel     Lines up to this level are logged, and only levels 3, 6 and 7 are in use. 0 to 2: nothing.
 *              3 to 5: failures. 6: also changes of state and detections. 7 to 9, as any number up to
 *              2147483647: also single events, and for most why they are not reported. Beyond: nothing.
 *
 * Returns true when the library is started, also when it was before; a second call changes nothing. The
 * account must hold the privilege to load drivers. False: the last line of level 3 names the step that
 * failed; the call may be repeated.
 *
 * Log, level 6   "Installing and setting up service: %s" and "Setup service successfully.", for each driver
 *                "LoadDriver was successful."
 *                "Ostrel filtering library already started."
 *      level 3   "Could not install OstrelFilter driver"
 *                "Could not install OstrelNWFilter driver"
 *                "Could not enable SE_LOAD_DRIVER_NAME privilege"
 *                "Could not start driver service: HResult: %x"
 *                "Could not connect to driver communication port: HResult: %x"
 *                "Could not start receive notification thread. Code: %lu"
 *      and, of a load that succeeds but reports nothing,
 *                "Could not start Disk Event thread. Code: %lu"
 *                "Disk Event thread already started!"
 */
OSTREL_FUNCTION uint8_t LoadDriver(LogCallback logCallback, uint32_t logLevel);

/*
 * Unloads the minifilter, closes its port and stops the disk event thread, for which it waits at most 3
 * seconds; while remote address info is on also the network driver's service and the packet reader, for which
 * it waits 3 seconds more. Callbacks and detected events that are still cached stay: a later LoadDriver goes
 * on with them.
 *
 * Returns true when the library is unloaded, also when it was before. False: the minifilter could not be
 * unloaded; its port is closed all the same, unless the privilege to unload drivers was refused, and the disk
 * event thread is stopped. Or the network driver's service could not be stopped, as when it runs no longer.
 *
 * A disk event thread that does not end in time, as while a callback blocks, ends by itself later; the
 * result does not tell, only a line of level 3 does. A LoadDriver after that succeeds but starts no new one,
 * and nothing is reported until the library is unloaded and loaded once more.
 *
 * Log, level 6   "Closed driver handle successfully" or "Failed to close driver handle: %d"
 *                "Disconnected from NW driver successfully.", while remote address info is on
 *                "Ostrel filtering library already unloaded."
 *      level 7   "Disk Event thread ended"
 *      level 3   "Could not enable privilege" or "Could not unload driver. %x": the result is false
 *                "Disk Event thread never ended." and "GetNWPacketInfo thread never ended.": it is not
 */
OSTREL_FUNCTION uint8_t UnloadDriver(void);

/*
 * Switches the detection of uploads and downloads by named processes on. Needs the minifilter loaded. A file
 * is reported once it has been quiet for 60 seconds, by a pass that runs every second; an upload only if at
 * least 90 per cent of the file was read.
 *
 * callback           Receives the detections. It stays in use after detection is switched off. Null for none.
 * userName           Account name of the monitored user, cut to 255 characters: remote address info, when it
 *                    is switched on later, looks at this user's network streams.
 * processNames       Image names such as chrome.exe; the case does not matter. The minifilter gets the first
 *                    64, each cut to 31 characters.
 * excludePaths       Directories to leave out, as a user writes them. They add up over all calls; the
 *                    minifilter gets the first 200, and is meant for paths below 300 characters.
 * driverOption       Handed to the minifilter unchanged.
 * remoteAddressInfo  True calls EnableRemoteAddressInfo with the same processes before telling the
 *                    minifilter. False leaves remote address info as it is.
 * tabTitles          False switches tab title capture off. True leaves it as it is.
 *
 * False: it is on already, and nothing is sent; or the minifilter's port cannot be opened, and it is on all
 * the same. True does not mean that the minifilter took the message: a refusal is only logged.
 *
 * Log, level 6   "Created filter processor with pCount=%d, exCount=%d", the numbers of processes and paths
 *                "Enabled Application Activity Detection."
 *                "Application activity already turned on."
 *      level 7   "Monitoring process: %s" and "Excluding path: %s", for each; the path in device form
 *      level 3   "Error opening port for updating monitored processes: HResult: %x": the result is false
 *                "Error getting message while updating kernel filter: HResult: %x": it is not
 *      and those of DisableTabTitles and EnableRemoteAddressInfo where it calls them.
 */
OSTREL_FUNCTION uint8_t EnableActivityDetection(ActivityEventCallback callback, const wchar_t* userName,
                                                const wchar_t** processNames, int32_t processCount,
                                                const wchar_t** excludePaths, int32_t excludeCount,
                                                uint8_t driverOption, uint8_t remoteAddressInfo,
                                                uint8_t tabTitles);

/*
 * Switches the detection of uploads and downloads off. What is cached is still reported.
 *
 * False: it is off already; or the minifilter's port cannot be opened, or memory is short, and it is off all
 * the same: enable it and switch it off again to tell the minifilter.
 *
 * Log, level 6   "Disabled Application Activity Detection."
 *                "Application activity already disabled."
 *      level 3   as EnableActivityDetection
 */
OSTREL_FUNCTION uint8_t DisableActivityDetection(void);

/*
 * Switches the detection of cloud-drive events on; for no process at all (processCount 0), off. Needs the
 * minifilter loaded.
 *
 * callback           Receives the detections. It stays in use after detection is switched off. Null for none.
 * cloudProcesses     Image names of cloud clients, as processNames above.
 * cloudPaths         Directories that the clients synchronise. They add up over all calls; the minifilter
 *                    gets the first 10.
 * cloudExcludePaths  Directories in them to leave out; likewise.
 *
 * False: the minifilter's port cannot be opened; it is on (or off) all the same. Calling it again sends
 * everything again.
 *
 * Log, level 6   "Created filter processor with cloud pCount=%d, exCount=%d", processes and cloud paths
 *                "Enabled PCD Detection."
 *                "No cloud processes. Turning PCD off", and then those of DisablePCDDetection
 *      level 7   "Monitoring cloud process: %s", "Cloud path: %s" and "Cloud exclude path: %s", for each
 *      level 3   as EnableActivityDetection
 */
OSTREL_FUNCTION uint8_t EnablePCDDetection(PcdEventCallback callback, const wchar_t** cloudProcesses,
                                           int32_t processCount, const wchar_t** cloudPaths,
                                           int32_t cloudPathCount, const wchar_t** cloudExcludePaths,
                                           int32_t cloudExcludeCount);

/*
 * Switches the detection of cloud-drive events off. What is cached is still reported.
 *
 * True also when it is off already. False: the minifilter's port cannot be opened, and it is off all the
 * same.
 *
 * Log, level 6   "Disabled PCD detection."
 *                "PCD already turned off."
 *      level 3   as EnableActivityDetection
 */
OSTREL_FUNCTION uint8_t DisablePCDDetection(void);

/*
 * Switches remote address info on: detections then name the network streams that may have carried the file.
 * Starts the network driver's service, registers its callouts with the Windows Filtering Platform for good,
 * opens a filtering session for the traffic of the user that EnableActivityDetection was given, and starts a
 * thread that reads the driver's packet records.
 *
 * processNames  Image names, as for EnableActivityDetection.
 *
 * Every step runs whatever the one before it did; failures are only logged. The filtering session and, of
 * each packet reader, the thread, its stop event and its 63 request events stay open until the process ends.
 * Does nothing when it is on already.
 *
 * The first session of a process that adds the filters keeps them until the process ends: switching on again
 * adds none, also for another user. Call this after LoadDriver, which stops the service and starts it again.
 *
 * UnloadDriver stops service and reader and leaves remote address info on; the next LoadDriver starts the
 * service again. For streams to be read again, switch it off and on.
 *
 * Log, level 6   "Turning on tracking of remote address info."
 *                "Ostrel NW monitoring enabled.", the one line that tells that the driver is at work
 *                "Connected to NW driver successfully.", whatever failed before
 *                "Sent proc names to nw filter. Existing proc count: %d ProcName Count: %d", or
 *                "Failed to send proc names to nw filter: %d"
 *      level 7   "Remote address capturing already enabled."
 *      level 3   one for each step that failed
 */
OSTREL_FUNCTION void EnableRemoteAddressInfo(const wchar_t** processNames, uint32_t processCount);

/*
 * Switches remote address info off: stops the network driver's service and the packet reader, for which it
 * waits at most 3 seconds, and forgets all network streams. The callouts stay registered. Does nothing when
 * it is off already.
 *
 * Log, level 6   "Turning off tracking of remote address info."
 *                "Disconnected from NW driver successfully."
 *      level 7   "Remote address capturing already disabled."
 *      level 3   "GetNWPacketInfo thread never ended.", and one for each step that failed
 */
OSTREL_FUNCTION void DisableRemoteAddressInfo(void);

/*
 * Sends the minifilter a new list of processes to watch for uploads and downloads, on or off as detection is,
 * and the ids of those of them that run at the moment. Call it also when a watched program has started. While
 * remote address info is on, the network driver gets the same list.
 *
 * processNames  Image names, as for EnableActivityDetection; they take the place of the earlier ones.
 * driverOption  Handed to the minifilter unchanged.
 *
 * Log, level 6   "Successfully updated processes to monitor.", also after a failure
 *      level 3   as EnableActivityDetection
 */
OSTREL_FUNCTION void UpdateProcesses(const wchar_t** processNames, uint32_t processCount,
                                     uint8_t driverOption);

/*
 * Switch the capture of tab titles for files touched later on and off. It starts on, and stays as it is when
 * the library is unloaded and loaded. They may wait for a title that is being asked for (rule 13).
 *
 * Log, level 6   "Turning on tab title capture." or "Turning off tab title capture.", also when it is so
 */
OSTREL_FUNCTION void EnableTabTitles(void);
OSTREL_FUNCTION void DisableTabTitles(void);

/*
 * The getters below set one of two strings: *result on success, *error on failure. The other one stays as it
 * was, so set both to null before. Free each string that was set with DeallocStringPointer. Texts are cut at
 * 2046 characters. When memory is short, a string is set to null or not at all. If either pointer is itself
 * null, nothing happens. They need no LoadDriver, only no log is written before it. Several threads may call
 * them at once.
 */

/*
 * The user logged on at the console, as DOMAIN\user; an empty text when nobody is. Asks Windows Management
 * Instrumentation, with COM initialised for the calling thread as multithreaded: a thread in a
 * single-threaded apartment gets an error. The host sees to the security of COM in its process. Cut at 255
 * characters.
 *
 * Errors         "GetCurrentUserNameAndDomain. " and, with the HRESULT as a signed number,
 *                "Could not initialize COM: %d"
 *                "Failed to CreateInstance. %d"
 *                "Failed to connect to the root\cimv2 namespace. %d"
 *                "Failed to setProxyBlanket. %d"
 *                "Failed to exec query. %d"
 *                "Failed to find next object. %d"
 *                After the second and the last, COM stays initialised for the thread.
 * Log, level 7   "Domain with username: %s"
 */
OSTREL_FUNCTION void GetCurrentUserName(wchar_t** result, wchar_t** error);

/*
 * The directories of all user profiles of the machine, each followed by a semicolon, the last one included;
 * an empty text when there are none. Each is cut at 255 characters. Asks Windows Management Instrumentation,
 * as GetCurrentUserName does.
 *
 * Errors         "GetAllUserDirectories. " and the first five of GetCurrentUserName
 * Log, level 7   "List of all Directories (semi-colon delimited): %s"
 */
OSTREL_FUNCTION void GetAllUserDirectories(wchar_t** result, wchar_t** error);

/*
 * URL of the automatic proxy configuration script in the Internet settings of the user that the calling
 * thread runs as. Neither string is set when the settings name none.
 *
 * Errors         "PROXY:: WinHttpGetIEProxyConfigForCurrentUser call returned FALSE with error %d."
 *                "PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url."
 */
OSTREL_FUNCTION void GetAutoProxyConfigUrlForUser(wchar_t** result, wchar_t** error);

/*
 * The same for the interactive user, through the helper (rule 13): for a service, whose own settings are not
 * the user's. Neither string is set when the settings name none.
 *
 * Errors         "PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url."
 *                "PROXY:: Unable to get auto proxy configuration url, error creating pipe (status=%s)."
 *                "PROXY:: Couldn't get AutoProxyConfigUrl from pipe: %d"
 *                "PROXY:: Couldn't deserialize AutoProxyConfigUrl message: %s"
 *                or what the helper says
 * Log, level 7   "PROXY:: Sending AutoProxyConfigUrl message %s" and, with the answer,
 *                "PROXY:: Received buffer from user process when requesting AutoProxyConfigUrl: %s"
 *      level 3   why the helper could not be asked; level 6 when that is because nobody is logged in
 */
OSTREL_FUNCTION void GetAutoProxyConfigUrlForSystem(wchar_t** result, wchar_t** error);

/*
 * Through the helper: the name that the interactive user has signed in with at a cloud storage provider.
 *
 * provider       "OneDrive", "OneDrive Personal", "OneDrive Business" or "iCloud"; case and blanks do not
 *                matter. Null is empty, and like any other text an error.
 * homeDirectory  Full path of the user's home directory. Null is empty.
 *
 * Errors         "CLOUDLOGIN:: Exception occurred while attempting to get cloud Login."
 *                "CLOUDLOGIN:: Unable to get cloud login, error creating pipe (status=%s)."
 *                "CLOUDLOGIN:: Couldn't get cloud Login from pipe: %d"
 *                "CLOUDLOGIN:: Couldn't deserialize cloud Login message: %s"
 *                or what the helper says, all as for GetAutoProxyConfigUrlForSystem
 * Log, level 7   "CLOUDLOGIN:: Sending cloud Login message %s for provider: %s" and, with the answer,
 *                "CLOUDLOGIN:: Received buffer from user process when requesting cloud Login: %s"
 *      level 3   why the helper could not be asked; level 6 when that is because nobody is logged in
 */
OSTREL_FUNCTION void GetCloudStorageProviderLoginForSystem(const wchar_t* provider,
                                                           const wchar_t* homeDirectory, wchar_t** result,
                                                           wchar_t** error);

/*
 * Frees the string *string, which the library handed out, and leaves the pointer as it is. Null is ignored,
 * for either. Logs nothing.
 */
OSTREL_FUNCTION void DeallocStringPointer(wchar_t** string);

#ifdef __cplusplus
}

/*
 * The exported classes are for hosts built with the same compiler, standard library and runtime as the DLL.
 * Rule 8 is not theirs: a member may throw std::bad_alloc, and what a hook of the host throws comes back to
 * the caller.
 */
#include "cache/event_records.h"
#include "cache/irp_cache.h"
#include "cache/read_event_cache.h"
#include "cache/sent_event_cache.h"
#include "network/network_event_cache.h"
#include "userhelper/process_metadata.h"
#include "util/ostrel_filter_lib_util.h"
#endif

#endif
