/* A host in C that uses an installed libkivsession: it loads a packaged resource, which needs no
 * server, and finds it where the library was installed.
 *
 *     session ROOT PREFIX
 */

#include <kivsession.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

static void logLine(void* context, const char* line) {
  (void)context;
  fprintf(stderr, "%s\n", line);
}

static int fail(const char* what, const char* detail) {
  fprintf(stderr, "session: %s%s%s\n", what, detail ? ": " : "", detail ? detail : "");
  return 1;
}

/* Puts out lines until one has the text, which is to have the other one too. */
static int receive(kivsession* session, const char* text, const char* other) {
  for (;;) {
    char* line;
    const int result = kivsession_receive(session, 30000, &line);
    if (result != KIVSESSION_OK) return fail("nothing came", text);
    puts(line);
    const int isIt = strstr(line, text) != NULL;
    const int isRight = strstr(line, other) != NULL;
    kivsession_free(line);
    if (isIt) return isRight ? 0 : fail("the line is wrong, it lacks", other);
  }
}

static int load(kivsession* session, const char* prefix) {
  static const char* const calls[] = {
      "{\"call\": \"loadResourcesForConfig\", \"config\": {\"items\": [{\"engine\": \"eco_standard\","
      " \"name\": \"House banner\", \"type\": \"banner\", \"banner_id\": \"house\", \"priority\": 1,"
      " \"updated\": 1, \"market_url\": \"https://host.example/\","
      " \"image_728x90\": \"banners/kivresource-placeholder-728x90.png\"}]}}",
      "{\"call\": \"waitForFinish\", \"tag\": 1}",
      "{\"call\": \"allLoadedResources\", \"tag\": \"all\"}",
  };
  for (size_t i = 0; i < sizeof calls / sizeof *calls; ++i) {
    if (kivsession_send(session, calls[i]) != KIVSESSION_OK) return fail("no call", calls[i]);
  }
  struct pollfd lines = {-1, POLLIN, 0};
  if (kivsession_descriptor(session, &lines.fd) != KIVSESSION_OK) return fail("no descriptor", NULL);
  if (poll(&lines, 1, 30000) != 1) return fail("no line is waiting", NULL);
  return receive(session, "\"tag\":1}", "\"result\"") || receive(session, "\"tag\":\"all\"}", prefix);
}

int main(int argc, char** argv) {
  if (argc != 3) return fail("takes two arguments, the root and the prefix", NULL);
  char settings[4096];
  snprintf(settings, sizeof settings, "{\"root\": \"%s\"}", argv[1]);

  kivsession* session;
  char* message;
  if (kivsession_set_log(logLine, NULL) != KIVSESSION_OK) return fail("no log", NULL);
  if (kivsession_open("{}", &session, &message) != KIVSESSION_INVALID || session || !message)
    return fail("settings without a root are accepted", NULL);
  kivsession_free(message);
  if (kivsession_open(settings, &session, &message) != KIVSESSION_OK)
    return fail("no session", message);
  const int status = load(session, argv[2]);
  if (kivsession_close(session) != KIVSESSION_OK) return fail("the session does not close", NULL);
  if (kivsession_close(session) != KIVSESSION_CLOSED) return fail("it closes twice", NULL);
  if (status == 0) printf("libkivsession %s\n", kivsession_version());
  return status;
}
