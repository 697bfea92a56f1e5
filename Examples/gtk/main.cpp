// A host with a small window on GTK 4.
//
//   kivresource-gtk --root DIRECTORY --server URL [--mirror URL] [--interval SECONDS] CONFIGURATION

#include <gtk/gtk.h>

#include "GLibMainQueue.h"
#include "Window.h"

namespace {

struct Arguments {
  char* root = nullptr;
  char* server = nullptr;
  char* mirror = nullptr;
  int interval = 3600;  // seconds
};

bool parse(int& count, char**& texts, Arguments& into) {
  const GOptionEntry entries[] = {
      {"root", 'r', 0, G_OPTION_ARG_FILENAME, &into.root, "Keep the cache there", "DIRECTORY"},
      {"server", 's', 0, G_OPTION_ARG_STRING, &into.server, "Fetch files from there", "URL"},
      {"mirror", 'm', 0, G_OPTION_ARG_STRING, &into.mirror, "And where that fails, there", "URL"},
      {"interval", 'i', 0, G_OPTION_ARG_INT, &into.interval,
       "Between two checks of a configuration at a URL; 0 for none", "SECONDS"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  GOptionContext* const context = g_option_context_new("CONFIGURATION");
  g_option_context_add_main_entries(context, entries, nullptr);
  GError* error = nullptr;
  bool isValid = g_option_context_parse(context, &count, &texts, &error) != FALSE;
  if (error) g_printerr("%s\n", error->message);
  g_clear_error(&error);
  if (isValid && (!into.root || !into.server || count > 2)) {
    char* const help = g_option_context_get_help(context, TRUE, nullptr);
    g_printerr("%s", help);
    g_free(help);
    isValid = false;
  }
  g_option_context_free(context);
  return isValid;
}

}  // namespace

int main(int count, char** texts) {
  Arguments arguments;
  if (!parse(count, texts, arguments)) return 2;
  if (!gtk_init_check()) {
    g_printerr("There is no display.\n");
    return 1;
  }
  const CacheSetup setup{arguments.root, arguments.server, arguments.mirror ? arguments.mirror : "",
                         std::chrono::seconds(arguments.interval)};
  g_free(arguments.root);
  g_free(arguments.server);
  g_free(arguments.mirror);
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  {
    const GLibMainQueue mainQueue;
    const Window window(setup, count > 1 ? texts[1] : "", [loop] { g_main_loop_quit(loop); });
    g_main_loop_run(loop);
  }
  g_main_loop_unref(loop);
}
