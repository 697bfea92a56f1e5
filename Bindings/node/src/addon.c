/* The Node-API side of the package: opens a session, hands its lines to JavaScript, and closes it.
 *
 * A thread for each session waits in kivsession_receive(). It hands one line at a time to the
 * thread of JavaScript and waits until that has taken it, so that all other lines wait in the
 * session, which drops progress that is out of date. */

/* For pthread_sigmask(). */
#define _POSIX_C_SOURCE 200809L
#define NAPI_VERSION 8

#include <node_api.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kivsession.h"

typedef struct Session {
  kivsession* session;
  pthread_t receiver;
  /* Calls deliver() on the thread of JavaScript. */
  napi_threadsafe_function deliverer;

  pthread_mutex_t mutex;
  pthread_cond_t changed;
  /* The line that is handed over, from kivsession_receive(). */
  char* line;
  bool isClosing;
  /* One thread joins the receiver; others that close wait until it has. */
  bool isJoining;
  bool isJoined;

  /* The rest is used on the thread of JavaScript only. */
  bool isReleased;
  /* The object of JavaScript, the deliverer, and the work that closes. */
  int owners;
} Session;

/* Tells an object of open() from any other object. */
static const napi_type_tag sessionTag = {0x6b76f0a12c5d4e83U, 0x9a4be6571f0d38c2U};

/* The session that the end of the process has to close. There is at most one open. */
static pthread_mutex_t openMutex = PTHREAD_MUTEX_INITIALIZER;
static Session* openSession;
static bool isEndRegistered;

/* --- Errors --- */

static const char* codeOf(int result) {
  switch (result) {
    case KIVSESSION_CLOSED:
      return "KIVRESOURCE_CLOSED";
    case KIVSESSION_INVALID:
      return "KIVRESOURCE_INVALID";
    case KIVSESSION_BUSY:
      return "KIVRESOURCE_BUSY";
    default:
      return "KIVRESOURCE_SYSTEM";
  }
}

static const char* textOf(int result) {
  switch (result) {
    case KIVSESSION_CLOSED:
      return "the cache is closed";
    case KIVSESSION_INVALID:
      return "the settings or the call are not valid";
    case KIVSESSION_BUSY:
      return "the process has an open cache already";
    default:
      return "the system has no memory, thread or descriptor left";
  }
}

static napi_value throwResult(napi_env env, int result, const char* message) {
  napi_throw_error(env, codeOf(result), message != NULL ? message : textOf(result));
  return NULL;
}

/* Throws what a function of Node-API has failed with. */
static napi_value throwStatus(napi_env env) {
  const napi_extended_error_info* info = NULL;
  const char* message = NULL;
  bool isPending = false;
  /* The next function of Node-API overwrites the information. */
  if (napi_get_last_error_info(env, &info) == napi_ok) message = info->error_message;
  if (napi_is_exception_pending(env, &isPending) == napi_ok && isPending) return NULL;
  napi_throw_error(env, "KIVRESOURCE_SYSTEM", message != NULL ? message : "Node-API failed");
  return NULL;
}

/* --- A session and its threads --- */

static Session* newSession(void) {
  Session* self = calloc(1, sizeof *self);
  if (self == NULL) return NULL;
  if (pthread_mutex_init(&self->mutex, NULL) != 0) {
    free(self);
    return NULL;
  }
  if (pthread_cond_init(&self->changed, NULL) != 0) {
    pthread_mutex_destroy(&self->mutex);
    free(self);
    return NULL;
  }
  return self;
}

static void freeSession(Session* self) {
  kivsession_free(self->line);
  pthread_cond_destroy(&self->changed);
  pthread_mutex_destroy(&self->mutex);
  free(self);
}

static void dropOwner(Session* self) {
  if (--self->owners == 0) freeSession(self);
}

/* Hands a line over, and waits until it was taken. Returns false when the session closes. */
static bool handOver(Session* self, char* line) {
  bool isClosing;
  pthread_mutex_lock(&self->mutex);
  self->line = line;
  /* Under the lock: once isClosing is set, the deliverer is not called any more. */
  if (!self->isClosing) {
    napi_call_threadsafe_function(self->deliverer, NULL, napi_tsfn_nonblocking);
  }
  while (self->line != NULL && !self->isClosing)
    pthread_cond_wait(&self->changed, &self->mutex);
  isClosing = self->isClosing;
  pthread_mutex_unlock(&self->mutex);
  return !isClosing;
}

/* After a KIVSESSION_SYSTEM. */
static void waitForMemory(void) {
  const struct timespec moment = {0, 10000000};
  nanosleep(&moment, NULL);
}

static void* receive(void* argument) {
  Session* self = argument;
  char* line = NULL;
  for (;;) {
    const int result = kivsession_receive(self->session, -1, &line);
    if (result == KIVSESSION_OK) {
      if (!handOver(self, line)) return NULL;
    } else if (result == KIVSESSION_SYSTEM) {
      waitForMemory(); /* the line is not lost */
    } else if (result != KIVSESSION_TIMEOUT) {
      return NULL;
    }
  }
}

/* Starts the receiver with all signals blocked, so that they reach the threads of the host. */
static bool startReceiver(Session* self) {
  sigset_t all;
  sigset_t former;
  int error;
  sigfillset(&all);
  if (pthread_sigmask(SIG_SETMASK, &all, &former) != 0) return false;
  error = pthread_create(&self->receiver, NULL, receive, self);
  pthread_sigmask(SIG_SETMASK, &former, NULL);
  return error == 0;
}

/* Closes the session and ends the receiver. On any thread, several times or at the same time; all
 * return when both are over. */
static void shutDown(Session* self) {
  bool joins;
  pthread_mutex_lock(&self->mutex);
  self->isClosing = true;
  pthread_cond_broadcast(&self->changed);
  pthread_mutex_unlock(&self->mutex);

  while (kivsession_close(self->session) == KIVSESSION_SYSTEM)
    waitForMemory();

  pthread_mutex_lock(&self->mutex);
  joins = !self->isJoining;
  self->isJoining = true;
  pthread_mutex_unlock(&self->mutex);
  if (joins) pthread_join(self->receiver, NULL);
  pthread_mutex_lock(&self->mutex);
  if (joins) self->isJoined = true;
  pthread_cond_broadcast(&self->changed);
  while (!self->isJoined)
    pthread_cond_wait(&self->changed, &self->mutex);
  pthread_mutex_unlock(&self->mutex);
}

/* process.exit() runs no cleanup hook of the main thread, but exit() runs this. The receiver may
 * not call into Node.js while it is torn down. */
static void endWithProcess(void) {
  Session* self;
  pthread_mutex_lock(&openMutex);
  self = openSession;
  if (self != NULL) shutDown(self);
  pthread_mutex_unlock(&openMutex);
}

/* Once a session has been opened, so that the end of the process comes here before the library's
 * own end. */
static bool setOpenSession(Session* self) {
  bool isSet;
  pthread_mutex_lock(&openMutex);
  if (!isEndRegistered) isEndRegistered = atexit(endWithProcess) == 0;
  isSet = isEndRegistered;
  if (isSet) openSession = self;
  pthread_mutex_unlock(&openMutex);
  return isSet;
}

static void forgetOpenSession(const Session* self) {
  pthread_mutex_lock(&openMutex);
  if (openSession == self) openSession = NULL;
  pthread_mutex_unlock(&openMutex);
}

/* --- On the thread of JavaScript --- */

/* After shutDown(). Lets the environment end. */
static void release(Session* self) {
  self->isReleased = true;
  forgetOpenSession(self);
  napi_release_threadsafe_function(self->deliverer, napi_tsfn_abort);
}

/* When the environment ends with the session open: the process does, or the worker. */
static void endWithEnvironment(void* argument) {
  Session* self = argument;
  shutDown(self);
  release(self);
}

static void finalizeDeliverer(napi_env env, void* data, void* hint) {
  (void)env;
  (void)hint;
  dropOwner(data);
}

static void finalizeObject(napi_env env, void* data, void* hint) {
  (void)env;
  (void)hint;
  dropOwner(data);
}

/* What a listener throws becomes an uncaught exception, as that of any event does. Node.js would
 * only warn of it. */
static void reportException(napi_env env) {
  napi_value exception;
  bool isPending = false;
  if (napi_is_exception_pending(env, &isPending) != napi_ok || !isPending) return;
  if (napi_get_and_clear_last_exception(env, &exception) != napi_ok) return;
  napi_fatal_exception(env, exception);
}

/* Takes the line and passes it to JavaScript. `env` is NULL when the environment ends. */
static void deliver(napi_env env, napi_value function, void* context, void* data) {
  Session* self = context;
  char* line;
  napi_value text;
  napi_value receiver;
  (void)data;
  if (env == NULL) return;
  pthread_mutex_lock(&self->mutex);
  line = self->line;
  self->line = NULL;
  pthread_cond_broadcast(&self->changed);
  pthread_mutex_unlock(&self->mutex);
  if (line == NULL) return;
  if (napi_create_string_utf8(env, line, NAPI_AUTO_LENGTH, &text) == napi_ok &&
      napi_get_undefined(env, &receiver) == napi_ok) {
    napi_call_function(env, receiver, function, 1, &text, NULL);
  }
  kivsession_free(line);
  reportException(env);
}

/* The text of a string as UTF-8, to be freed; NULL with an exception if it is none, or has a zero
 * character, which the library would take for its end. */
static char* newText(napi_env env, napi_value value) {
  size_t length = 0;
  char* text;
  if (napi_get_value_string_utf8(env, value, NULL, 0, &length) != napi_ok) {
    throwStatus(env);
    return NULL;
  }
  text = malloc(length + 1);
  if (text == NULL) {
    throwResult(env, KIVSESSION_SYSTEM, NULL);
    return NULL;
  }
  if (napi_get_value_string_utf8(env, value, text, length + 1, &length) != napi_ok) {
    throwStatus(env);
  } else if (strlen(text) != length) {
    throwResult(env, KIVSESSION_INVALID, "the text has a zero character");
  } else {
    return text;
  }
  free(text);
  return NULL;
}

/* The session of the first argument; NULL with an exception if it has none. Gets the arguments. */
static Session* sessionOf(napi_env env, napi_callback_info info, size_t count, napi_value* values) {
  size_t given = count;
  bool hasTag = false;
  void* self = NULL;
  if (napi_get_cb_info(env, info, &given, values, NULL, NULL) != napi_ok ||
      napi_check_object_type_tag(env, values[0], &sessionTag, &hasTag) != napi_ok) {
    throwStatus(env);
    return NULL;
  }
  if (!hasTag) {
    napi_throw_type_error(env, "KIVRESOURCE_INVALID", "this is not a session");
    return NULL;
  }
  if (napi_unwrap(env, values[0], &self) != napi_ok) {
    throwStatus(env);
    return NULL;
  }
  return self;
}

/* --- open() --- */

static bool createDeliverer(napi_env env, Session* self, napi_value function) {
  napi_value name;
  if (napi_create_string_utf8(env, "kivresource", NAPI_AUTO_LENGTH, &name) != napi_ok) return false;
  if (napi_create_threadsafe_function(env, function, NULL, name, 0, 1, self, finalizeDeliverer,
                                      self, deliver, &self->deliverer) != napi_ok) {
    return false;
  }
  ++self->owners;
  return true;
}

/* The object that stands for the session; NULL with an exception. It has become an owner. */
static napi_value createObject(napi_env env, Session* self) {
  napi_value object;
  if (napi_create_object(env, &object) != napi_ok ||
      napi_type_tag_object(env, object, &sessionTag) != napi_ok ||
      napi_wrap(env, object, self, finalizeObject, NULL, NULL) != napi_ok) {
    return throwStatus(env);
  }
  ++self->owners;
  return object;
}

/* Opens the library's session and starts to receive. Returns false with an exception. */
static bool start(napi_env env, Session* self, const char* settings) {
  char* message = NULL;
  const int result = kivsession_open(settings, &self->session, &message);
  if (result != KIVSESSION_OK) {
    throwResult(env, result, message);
    kivsession_free(message);
    return false;
  }
  if (!startReceiver(self)) {
    kivsession_close(self->session);
    throwResult(env, KIVSESSION_SYSTEM, NULL);
    return false;
  }
  /* The hook comes after the deliverer, so that it runs before Node.js ends that. */
  if (!setOpenSession(self) ||
      napi_add_env_cleanup_hook(env, endWithEnvironment, self) != napi_ok) {
    shutDown(self);
    forgetOpenSession(self);
    throwResult(env, KIVSESSION_SYSTEM, NULL);
    return false;
  }
  return true;
}

/* open(settings, receive): the session, whose lines receive(line) gets. */
static napi_value openCall(napi_env env, napi_callback_info info) {
  size_t count = 2;
  napi_value values[2];
  napi_value object = NULL;
  Session* self;
  char* settings;
  if (napi_get_cb_info(env, info, &count, values, NULL, NULL) != napi_ok) return throwStatus(env);
  settings = newText(env, values[0]);
  if (settings == NULL) return NULL;
  self = newSession();
  if (self == NULL) {
    throwResult(env, KIVSESSION_SYSTEM, NULL);
  } else if (!createDeliverer(env, self, values[1])) {
    throwStatus(env);
    freeSession(self);
  } else {
    object = createObject(env, self);
    if (object != NULL && !start(env, self, settings)) object = NULL;
    if (object == NULL) {
      self->isReleased = true;
      napi_release_threadsafe_function(self->deliverer, napi_tsfn_abort);
    }
  }
  free(settings);
  return object;
}

/* --- close() --- */

typedef struct Closing {
  Session* session;
  napi_async_work work;
  napi_deferred deferred;
} Closing;

static void executeClosing(napi_env env, void* data) {
  const Closing* closing = data;
  (void)env;
  shutDown(closing->session);
}

static void completeClosing(napi_env env, napi_status status, void* data) {
  Closing* closing = data;
  napi_value undefined;
  /* Work that was cancelled has not closed the session; the end of the environment does. */
  if (status == napi_ok && !closing->session->isReleased) {
    napi_remove_env_cleanup_hook(env, endWithEnvironment, closing->session);
    release(closing->session);
  }
  if (napi_get_undefined(env, &undefined) == napi_ok) {
    napi_resolve_deferred(env, closing->deferred, undefined);
  }
  napi_delete_async_work(env, closing->work);
  dropOwner(closing->session);
  free(closing);
}

/* close(session): a promise that is fulfilled when the session has ended. */
static napi_value closeCall(napi_env env, napi_callback_info info) {
  napi_value values[1];
  napi_value name;
  napi_value promise;
  Closing* closing;
  Session* self = sessionOf(env, info, 1, values);
  if (self == NULL) return NULL;
  closing = calloc(1, sizeof *closing);
  if (closing == NULL) return throwResult(env, KIVSESSION_SYSTEM, NULL);
  closing->session = self;
  if (napi_create_string_utf8(env, "kivresource", NAPI_AUTO_LENGTH, &name) != napi_ok ||
      napi_create_async_work(env, NULL, name, executeClosing, completeClosing, closing,
                             &closing->work) != napi_ok) {
    free(closing);
    return throwStatus(env);
  }
  if (napi_create_promise(env, &closing->deferred, &promise) != napi_ok ||
      napi_queue_async_work(env, closing->work) != napi_ok) {
    throwStatus(env);
    napi_delete_async_work(env, closing->work);
    free(closing);
    return NULL;
  }
  ++self->owners;
  return promise;
}

/* --- The log --- */

/* Where the log of the process goes, or has gone. Freed when its environment ends, until which it
 * tells the cleanup hooks of several apart. */
typedef struct LogTarget {
  napi_threadsafe_function receiver;
} LogTarget;

/* Held while the log function of the library changes; that takes no other lock of ours. */
static pthread_mutex_t logChangeMutex = PTHREAD_MUTEX_INITIALIZER;
/* Held in takeLogLine(), which a thread may call for a moment after the log function has changed.
 */
static pthread_mutex_t logMutex = PTHREAD_MUTEX_INITIALIZER;
static LogTarget* logTarget;

/* On any thread. */
static void takeLogLine(void* context, const char* line) {
  const size_t size = strlen(line) + 1;
  char* copy = malloc(size);
  bool isTaken = false;
  (void)context;
  if (copy == NULL) return;
  memcpy(copy, line, size);
  pthread_mutex_lock(&logMutex);
  if (logTarget != NULL) {
    isTaken =
        napi_call_threadsafe_function(logTarget->receiver, copy, napi_tsfn_nonblocking) == napi_ok;
  }
  pthread_mutex_unlock(&logMutex);
  if (!isTaken) free(copy);
}

/* Passes a line to JavaScript. `env` is NULL when the environment ends. */
static void deliverLogLine(napi_env env, napi_value function, void* context, void* data) {
  napi_value text;
  napi_value receiver;
  (void)context;
  if (env != NULL && napi_create_string_utf8(env, data, NAPI_AUTO_LENGTH, &text) == napi_ok &&
      napi_get_undefined(env, &receiver) == napi_ok) {
    napi_call_function(env, receiver, function, 1, &text, NULL);
  }
  free(data);
  if (env != NULL) reportException(env);
}

/* Changes where the log goes; NULL for where the library writes it. Under logChangeMutex. */
static bool changeLog(LogTarget* target) {
  if (target != NULL && kivsession_set_log(takeLogLine, NULL) != KIVSESSION_OK) return false;
  if (target == NULL) kivsession_set_log(NULL, NULL);
  pthread_mutex_lock(&logMutex);
  if (logTarget != NULL) napi_release_threadsafe_function(logTarget->receiver, napi_tsfn_abort);
  logTarget = target;
  pthread_mutex_unlock(&logMutex);
  return true;
}

static void endLogWithEnvironment(void* argument) {
  LogTarget* target = argument;
  pthread_mutex_lock(&logChangeMutex);
  if (logTarget == target) changeLog(NULL);
  pthread_mutex_unlock(&logChangeMutex);
  free(target);
}

static LogTarget* newLogTarget(napi_env env, napi_value function) {
  napi_value name;
  LogTarget* target = calloc(1, sizeof *target);
  if (target == NULL) {
    throwResult(env, KIVSESSION_SYSTEM, NULL);
    return NULL;
  }
  if (napi_create_string_utf8(env, "kivresource", NAPI_AUTO_LENGTH, &name) != napi_ok ||
      napi_create_threadsafe_function(env, function, NULL, name, 0, 1, NULL, NULL, NULL,
                                      deliverLogLine, &target->receiver) != napi_ok) {
    throwStatus(env);
    free(target);
    return NULL;
  }
  /* The log keeps no process running. */
  napi_unref_threadsafe_function(env, target->receiver);
  return target;
}

/* setLog(receive): the log goes to receive(line); with null, to where the library writes it. */
static napi_value setLogCall(napi_env env, napi_callback_info info) {
  size_t count = 1;
  napi_value values[1];
  napi_valuetype type = napi_undefined;
  LogTarget* target = NULL;
  bool isChanged;
  if (napi_get_cb_info(env, info, &count, values, NULL, NULL) != napi_ok ||
      napi_typeof(env, values[0], &type) != napi_ok) {
    return throwStatus(env);
  }
  if (type == napi_function) {
    target = newLogTarget(env, values[0]);
    if (target == NULL) return NULL;
  } else if (type != napi_null) {
    napi_throw_type_error(env, "KIVRESOURCE_INVALID", "setLog() takes a function or null");
    return NULL;
  }
  pthread_mutex_lock(&logChangeMutex);
  isChanged = changeLog(target);
  pthread_mutex_unlock(&logChangeMutex);
  if (!isChanged) {
    napi_release_threadsafe_function(target->receiver, napi_tsfn_abort);
    free(target);
    return throwResult(env, KIVSESSION_SYSTEM, NULL);
  }
  /* After its function, so that it runs before Node.js ends that. */
  if (target != NULL) napi_add_env_cleanup_hook(env, endLogWithEnvironment, target);
  return NULL;
}

/* --- The other functions --- */

/* send(session, call) */
static napi_value sendCall(napi_env env, napi_callback_info info) {
  napi_value values[2];
  char* call;
  int result;
  Session* self = sessionOf(env, info, 2, values);
  if (self == NULL) return NULL;
  call = newText(env, values[1]);
  if (call == NULL) return NULL;
  result = kivsession_send(self->session, call);
  free(call);
  return result == KIVSESSION_OK ? NULL : throwResult(env, result, NULL);
}

/* ref(session): the session keeps the process running, as at first. */
static napi_value refCall(napi_env env, napi_callback_info info) {
  napi_value values[1];
  Session* self = sessionOf(env, info, 1, values);
  if (self != NULL && !self->isReleased) napi_ref_threadsafe_function(env, self->deliverer);
  return NULL;
}

/* unref(session): the process may end while the session is open. */
static napi_value unrefCall(napi_env env, napi_callback_info info) {
  napi_value values[1];
  Session* self = sessionOf(env, info, 1, values);
  if (self != NULL && !self->isReleased) napi_unref_threadsafe_function(env, self->deliverer);
  return NULL;
}

static bool exportFunction(napi_env env, napi_value exports, const char* name, napi_callback call) {
  napi_value function;
  return napi_create_function(env, name, NAPI_AUTO_LENGTH, call, NULL, &function) == napi_ok &&
         napi_set_named_property(env, exports, name, function) == napi_ok;
}

/* Runs once for each environment: the main thread's, and that of each worker. */
NAPI_MODULE_INIT() {
  napi_value version;
  if (!exportFunction(env, exports, "open", openCall) ||
      !exportFunction(env, exports, "send", sendCall) ||
      !exportFunction(env, exports, "close", closeCall) ||
      !exportFunction(env, exports, "ref", refCall) ||
      !exportFunction(env, exports, "unref", unrefCall) ||
      !exportFunction(env, exports, "setLog", setLogCall) ||
      napi_create_string_utf8(env, kivsession_version(), NAPI_AUTO_LENGTH, &version) != napi_ok ||
      napi_set_named_property(env, exports, "version", version) != napi_ok) {
    return throwStatus(env);
  }
  return exports;
}
