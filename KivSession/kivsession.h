/* A local cache of remote advertising resources, for hosts in any language that can call C.
 *
 * A session is a cache that runs on a thread of its own. The host sends it calls and receives the
 * results and events, each one line of JSON in UTF-8; Docs/SESSION.md describes every line.
 *
 *     kivsession *session;
 *     char *line;
 *     int result = kivsession_open("{\"root\": \"/var/cache/app\"}", &session, &line);
 *     if (result != KIVSESSION_OK) ...   line, if it is not NULL, says what is wrong
 *     kivsession_send(session, "{\"call\": \"allLoadedResources\"}");
 *     while (kivsession_receive(session, -1, &line) == KIVSESSION_OK) {
 *       ...
 *       kivsession_free(line);
 *     }
 *     kivsession_close(session);
 *
 * Every function may be called from any thread, several at a time on the same session, but not in
 * a signal handler. None throws, aborts or raises a signal. A session that was closed, and a
 * pointer that was never one, is recognised: the functions return KIVSESSION_CLOSED. In a child
 * after fork() every session is closed; one of its own can be opened after exec() only.
 */

#ifndef KIVSESSION_H
#define KIVSESSION_H

#if defined(__GNUC__)
#define KIVSESSION_API __attribute__((visibility("default")))
#else
#define KIVSESSION_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An open session. Never look into it. */
typedef struct kivsession kivsession;

/* What the functions return. Values that are added later are greater than these. */
#define KIVSESSION_OK 0
#define KIVSESSION_TIMEOUT 1 /* nothing to receive within the time */
#define KIVSESSION_CLOSED 2  /* not an open session, or closed while the call waited */
#define KIVSESSION_INVALID 3 /* an argument is not what the function takes */
#define KIVSESSION_BUSY 4    /* the process has an open session already */
#define KIVSESSION_SYSTEM 5  /* the system has no memory, thread or descriptor left */

/* Opens a session. The process may have one at a time; when it is closed, the next may be opened,
 * with the same storage root or another.
 *
 * `settings` is a JSON object: "root" is the absolute path of the directory for the cache, the only
 * member that must be there. The text is copied.
 *
 * On KIVSESSION_OK `*session` is the session, to be closed by kivsession_close(). Otherwise it is
 * NULL, and `*message`, unless `message` is NULL, is one line that says what is wrong, to be
 * freed by kivsession_free(); NULL if there is no memory for it. Returns KIVSESSION_INVALID if the
 * settings are not valid, KIVSESSION_BUSY or KIVSESSION_SYSTEM.
 *
 * A saved list of the root is restored before the first call is made; this does not wait for it. */
KIVSESSION_API int kivsession_open(const char* settings, kivsession** session, char** message);

/* Adds a call, one JSON object. Calls are made in the order in which they were added; this does
 * not wait. The text is copied. What is not a valid call is answered by a line with an error.
 * Returns KIVSESSION_OK, KIVSESSION_CLOSED, KIVSESSION_INVALID for NULL, or KIVSESSION_SYSTEM, when
 * the call was not added. */
KIVSESSION_API int kivsession_send(kivsession* session, const char* call);

/* Receives the next line, and waits up to `timeout_ms` milliseconds for it: 0 to return at once,
 * negative to wait as long as it takes. Each line is received once, by one of the threads that
 * wait. Lines wait in memory until they are received.
 *
 * On KIVSESSION_OK `*line` is the line, without a newline and ending with a zero byte, to be freed
 * by kivsession_free(). Otherwise it is NULL. Returns KIVSESSION_TIMEOUT, KIVSESSION_CLOSED,
 * KIVSESSION_INVALID if `line` is NULL, or KIVSESSION_SYSTEM; the line is not lost then. */
KIVSESSION_API int kivsession_receive(kivsession* session, int timeout_ms, char** line);

/* Gets a descriptor for select(), poll() or an event loop: it is readable while a line waits. It
 * belongs to the session, which closes it in kivsession_close(); do not read from it. Receive with
 * a timeout of 0 when it is readable. `*descriptor` is -1 unless the result is KIVSESSION_OK. */
KIVSESSION_API int kivsession_descriptor(kivsession* session, int* descriptor);

/* Stops what is loading, and ends the session. Complete resources stay, and so do the bytes of
 * incomplete files. Lines that nobody received are lost; threads that wait in kivsession_receive()
 * may get the last ones, and then KIVSESSION_CLOSED. Returns KIVSESSION_OK only once the session's
 * thread has ended, also if several threads close it; KIVSESSION_CLOSED; or KIVSESSION_INVALID in
 * the log function. After KIVSESSION_SYSTEM it can be called again. A session
 * that is open when the process exits is closed then. */
KIVSESSION_API int kivsession_close(kivsession* session);

/* Receives the lines of the log, for people; not to be parsed. `line` is valid during the call. The
 * function may be called on any thread, also on several at a time, and must not call
 * kivsession_close(). */
typedef void kivsession_log(void* context, const char* line);

/* Sets the log function of the process; NULL restores standard error and the system's log. Returns
 * KIVSESSION_OK or KIVSESSION_SYSTEM. A call of the former function on another thread may still be
 * running when this returns. */
KIVSESSION_API int kivsession_set_log(kivsession_log* function, void* context);

/* Frees a text that this library returned. NULL is ignored. */
KIVSESSION_API void kivsession_free(char* text);

/* The version of the library, such as "1.0.0". Never freed. */
KIVSESSION_API const char* kivsession_version(void);

#ifdef __cplusplus
}
#endif

#endif
