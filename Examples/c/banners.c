/* A host in C without a JSON library: loads a configuration and prints what is ready.
 *
 *     banners ROOT CONFIGURATION [MAIN-SERVER [MIRROR]]
 *
 * ROOT is the absolute path of the directory for the cache, CONFIGURATION the path of a file.
 * Prints one line of JSON, with all resources that are ready, and the lines of failures to standard
 * error. Exits with 0 if nothing failed, with 1 if something did, and with 2 if nothing could be
 * tried.
 *
 * It passes lines on as they are, and looks only at how they begin: with the member that says what
 * the line is, without spaces. To look inside a line takes a JSON parser. */

/* For poll(). */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivsession.h"

enum { allReady = 0, someFailed = 1, notTried = 2 };

static void complain(const char* what) {
  (void)fprintf(stderr, "banners: %s\n", what);
}

/* --- Writing JSON --- */

/* Appends the text as a JSON string at `*end`, which has room for six bytes for each of its bytes
 * and two more. */
static void appendString(char** end, const char* text) {
  *(*end)++ = '"';
  for (; *text != '\0'; ++text) {
    const unsigned char byte = (unsigned char)*text;
    if (byte < 0x20) {
      *end += sprintf(*end, "\\u%04x", (unsigned int)byte);
    } else {
      if (byte == '"' || byte == '\\') *(*end)++ = '\\';
      *(*end)++ = *text;
    }
  }
  *(*end)++ = '"';
}

/* An object of the members whose value is not NULL; to be freed. NULL if there is no memory. */
static char* newObject(const char* const* names, const char* const* values, size_t count) {
  size_t size = sizeof "{}";
  size_t at;
  char* object;
  char* end;
  for (at = 0; at < count; ++at) {
    if (values[at] != NULL)
      size += 6 * (strlen(names[at]) + strlen(values[at])) + sizeof "\"\":\"\",";
  }
  object = malloc(size);
  if (object == NULL) return NULL;
  end = object;
  *end++ = '{';
  for (at = 0; at < count; ++at) {
    if (values[at] == NULL) continue;
    if (end != object + 1) *end++ = ',';
    appendString(&end, names[at]);
    *end++ = ':';
    appendString(&end, values[at]);
  }
  *end++ = '}';
  *end = '\0';
  return object;
}

/* --- The session --- */

/* NULL after an error was printed. */
static kivsession* openSession(const char* root, const char* mainServer, const char* mirror) {
  static const char* const names[] = {"root", "main", "reserve"};
  const char* values[3];
  kivsession* session = NULL;
  char* message = NULL;
  char* settings;
  values[0] = root;
  values[1] = mainServer;
  values[2] = mirror;
  settings = newObject(names, values, 3);
  if (settings == NULL) {
    complain("no memory");
    return NULL;
  }
  if (kivsession_open(settings, &session, &message) != KIVSESSION_OK) {
    complain(message != NULL ? message : "the session cannot be opened");
    kivsession_free(message);
  }
  free(settings);
  return session;
}

/* Returns 0 after an error was printed. */
static int sendCall(kivsession* session, const char* name, const char* configuration) {
  static const char* const names[] = {"call", "config"};
  const char* values[2];
  char* call;
  int result;
  values[0] = name;
  values[1] = configuration;
  call = newObject(names, values, 2);
  if (call == NULL) {
    complain("no memory");
    return 0;
  }
  result = kivsession_send(session, call);
  free(call);
  if (result != KIVSESSION_OK) complain("the call cannot be sent");
  return result == KIVSESSION_OK;
}

/* What has happened so far. */
typedef struct Outcome {
  int hasFinished;
  int isOver;
  int status;
} Outcome;

static int beginsWith(const char* line, const char* beginning) {
  return strncmp(line, beginning, strlen(beginning)) == 0;
}

static void end(Outcome* outcome, int status) {
  outcome->isOver = 1;
  outcome->status = status;
}

static void takeLine(kivsession* session, const char* line, Outcome* outcome) {
  if (beginsWith(line, "{\"event\":\"didFailToLoadResource\"")) {
    (void)fprintf(stderr, "%s\n", line);
    outcome->status = someFailed;
  } else if (beginsWith(line, "{\"event\":\"didFinishLoading\"")) {
    outcome->hasFinished = 1;
    /* Files that fail at once cause a finish each, also while others load. */
    if (!sendCall(session, "state", NULL)) end(outcome, notTried);
  } else if (beginsWith(line, "{\"result\":\"state\",\"downloads\":0,")) {
    /* The answer comes after what the last download has brought. */
    if (!sendCall(session, "allLoadedResources", NULL)) end(outcome, notTried);
  } else if (beginsWith(line, "{\"result\":\"allLoadedResources\"")) {
    (void)puts(line);
    end(outcome, outcome->status);
  } else if (beginsWith(line, "{\"error\":")) {
    (void)fprintf(stderr, "%s\n", line);
    outcome->status = someFailed;
    /* Before the finish it answers the call: there is no such file, or it is no configuration. */
    if (!outcome->hasFinished) end(outcome, notTried);
  }
  /* Other lines, such as those of a later version of the library, are no concern of this host. */
}

/* Takes the lines that wait. Returns 0 if the session has ended. */
static int takeLines(kivsession* session, Outcome* outcome) {
  int result = KIVSESSION_OK;
  while (result == KIVSESSION_OK && !outcome->isOver) {
    char* line = NULL;
    result = kivsession_receive(session, 0, &line);
    if (result == KIVSESSION_OK) takeLine(session, line, outcome);
    kivsession_free(line);
  }
  return result == KIVSESSION_OK || result == KIVSESSION_TIMEOUT;
}

/* Waits for lines as a loop waits that has other descriptors too. */
static int runUntilOver(kivsession* session) {
  Outcome outcome = {0, 0, allReady};
  struct pollfd descriptors[1];
  int descriptor = -1;
  if (kivsession_descriptor(session, &descriptor) != KIVSESSION_OK) return notTried;
  descriptors[0].fd = descriptor;
  descriptors[0].events = POLLIN;
  while (!outcome.isOver) {
    descriptors[0].revents = 0;
    if (poll(descriptors, 1, -1) < 0) {
      if (errno == EINTR) continue;
      complain(strerror(errno));
      return notTried;
    }
    if (!takeLines(session, &outcome)) {
      complain("the session has ended");
      return notTried;
    }
  }
  return outcome.status;
}

int main(int count, char** arguments) {
  kivsession* session;
  int status = notTried;
  if (count < 3 || count > 5) {
    complain("the arguments are ROOT CONFIGURATION [MAIN-SERVER [MIRROR]]");
    return notTried;
  }
  session =
      openSession(arguments[1], count > 3 ? arguments[3] : NULL, count > 4 ? arguments[4] : NULL);
  if (session == NULL) return notTried;
  if (sendCall(session, "updateResourcesForConfig", arguments[2])) status = runUntilOver(session);
  kivsession_close(session);
  if (fflush(stdout) != 0) {
    complain("the output cannot be written");
    return notTried;
  }
  return status;
}
