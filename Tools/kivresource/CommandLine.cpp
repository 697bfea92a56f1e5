#include "Tools/kivresource/CommandLine.h"

#include <string>

#include <CLI/CLI.hpp>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

constexpr const char* description =
    "Keeps a local cache of remote advertising resources: loads what a configuration names, shows "
    "what is loaded, and looks after it.";

constexpr const char* footer = R"(
Environment:
  KIVRESOURCE_MAIN_URL     the main server, where --main does not name it
  KIVRESOURCE_RESERVE_URL  the reserve server, where --reserve does not name it
  NO_COLOR                 when set, nothing is coloured

Exit status:
  0    every resource is loaded or current
  1    at least one failed, or the list or the output could not be written
  2    wrong usage, or a configuration that cannot be read
  130  stopped by Ctrl-C; what was complete stays

Try it:
  kivresource serve Examples/content/server --port 8080 &
  kivresource --main http://127.0.0.1:8080 load Examples/content/first.json
  kivresource list
  kivresource gallery gallery.html)";

CLI::Option* addText(CLI::App& app, const std::string& name, std::optional<std::string>& place,
                     const std::string& help) {
  return app.add_option_function<std::string>(
      name, [&place](const std::string& text) { place = text; }, help);
}

/// An empty URL means no server, so that the command line can override the environment.
void addServer(CLI::App& app, const std::string& name, const char* variable,
               std::optional<std::string>& place, const std::string& help) {
  const auto take = [&place](const std::string& url) {
    place = url.empty() ? std::nullopt : std::optional(url);
  };
  app.add_option_function<std::string>(name, take, help)->type_name("URL")->envname(variable);
}

/// An empty directory is an error; usually it comes from an unset variable.
void addDirectory(CLI::App& app, const std::string& name, std::optional<std::string>& place,
                  const std::string& help) {
  const CLI::Validator isNamed(
      [](const std::string& path) { return std::string(path.empty() ? "is empty" : ""); }, "");
  addText(app, name, place, help)->type_name("DIR")->check(isNamed);
}

CLI::App* addCommand(CLI::App& app, Options& options, const std::string& name,
                     const std::string& help, Options::Command command) {
  CLI::App* const added = app.add_subcommand(name, help);
  added->group("Commands");
  added->fallthrough();  // general options may also follow the command
  added->footer("The general options, see kivresource --help, may stand here too.");
  added->callback([&options, command] { options.command = command; });
  return added;
}

void addConfig(CLI::App& command, Options& options) {
  command
      .add_option("CONFIG", options.config,
                  "A configuration in JSON: a path, or - for standard input")
      ->required()
      ->type_name("");
}

void addSelection(CLI::App& command, Options& options) {
  auto* const id = addText(command, "--id", options.id, "Only the resources with this identifier");
  auto* const type = addText(command, "--type", options.type, "Only the resources of this type");
  id->type_name("ID")->excludes(type);
  type->type_name("TYPE")->excludes(id);
}

void addVerbose(CLI::App& command, Options& options) {
  command.add_flag("--verbose", options.verbose, "Also shows each failed try at a server, and why");
}

void addHeaders(CLI::App& command, Options& options) {
  addText(command, "--headers", options.headers,
          "A file with headers for requests to the servers, one \"Name: value\" a line")
      ->type_name("FILE");
}

void addGeneralOptions(CLI::App& app, Options& options) {
  addDirectory(app, "--root", options.root,
               "The storage root; a folder in the user's data directory where none is named");
  addServer(app, "--main", "KIVRESOURCE_MAIN_URL", options.mainURL,
            "The main server, like https://ads.example/files");
  addServer(app, "--reserve", "KIVRESOURCE_RESERVE_URL", options.reserveURL,
            "The reserve server, its mirror");
  addDirectory(app, "--resources", options.resources,
               "The directory that holds InnerAdResources.bundle");
  app.add_flag("--json", options.json, "Prints JSON, one object a line");
}

void addPassCommands(CLI::App& app, Options& options) {
  auto* const load = addCommand(app, options, "load", "Loads what a configuration names", runLoad);
  addConfig(*load, options);
  addSelection(*load, options);
  addHeaders(*load, options);
  addVerbose(*load, options);
  auto* const update = addCommand(
      app, options, "update",
      "Loads what a configuration names, and drops from the list what it does not name", runUpdate);
  addConfig(*update, options);
  addHeaders(*update, options);
  addVerbose(*update, options);
  auto* const revalidate =
      addCommand(app, options, "revalidate",
                 "Asks the servers whether stored files have changed, and fetches those that have",
                 runRevalidate);
  addSelection(*revalidate, options);
  addHeaders(*revalidate, options);
  auto* const watch =
      addCommand(app, options, "watch",
                 "Keeps the resources up to date with a configuration on a server, until it is "
                 "stopped",
                 runWatch);
  watch->add_option("URL", options.url, "The configuration")->required()->type_name("");
  watch
      ->add_option("--mirror", options.mirrors,
                   "Another URL of it, asked where the first fails; may be given more than once")
      ->type_name("URL")
      ->allow_extra_args(false);
  watch->add_option("--interval", options.interval, "Seconds between two checks; 3600 by default")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 366 * 24 * 3600));
  addHeaders(*watch, options);
  auto* const list =
      addCommand(app, options, "list", "Shows what is loaded, with local paths", runList);
  addSelection(*list, options);
}

/// CLI11 would accept a suffix of another meaning, and numbers with a sign or a fraction.
void addTrim(CLI::App& app, Options& options) {
  using Rule = KivResourceTrimOptions::Rule;
  auto* const trim = addCommand(app, options, "trim",
                                "Removes files until the cache takes no more than a size", runTrim);
  const auto takeSize = [&options](const std::string& text) {
    const auto bytes = bytesOfText(text);
    if (!bytes) {
      throw CLI::ValidationError("\"" + text + "\" is no size: it is a number of bytes, or of " +
                                 "kB, MB or GB, like 500M");
    }
    options.bytes = *bytes;
  };
  trim->add_option_function<std::string>("SIZE", takeSize,
                                         "The size in bytes, or like 20k, 500M or 2G")
      ->required()
      ->type_name("");
  const auto takeRule = [&options](const std::string& text) {
    options.rule = text == "oldest" ? Rule::oldestStamp : Rule::leastRecentlyShown;
  };
  trim->add_option_function<std::string>(
          "--loaded", takeRule,
          "Removes loaded resources too: oldest for those with the oldest version, least-shown for "
          "those that were not shown for the longest time")
      ->type_name("ORDER")
      ->check(CLI::IsMember({"oldest", "least-shown"}));
  trim->add_flag("--dry-run", options.dryRun, "Only shows what would be removed");
}

void addMaintenanceCommands(CLI::App& app, Options& options) {
  addCommand(app, options, "audit", "Shows what is missing, orphaned or temporary", runAudit);
  auto* const clean =
      addCommand(app, options, "clean", "Removes files that no loaded resource uses", runClean);
  clean->add_flag("--dry-run", options.dryRun, "Only shows what would be removed");
  addTrim(app, options);
}

void addOtherCommands(CLI::App& app, Options& options) {
  auto* const serve =
      addCommand(app, options, "serve",
                 "Serves a directory on the loopback interface, for trying things out", runServe);
  serve->add_option("DIR", options.directory, "The directory")->required()->type_name("");
  serve->add_option("--port", options.port, "The port; a free one where none is named")
      ->type_name("N")
      ->check(CLI::Range(0, 65535));
  serve
      ->add_option("--fault", options.faults,
                   "What goes wrong: PATH=STATUS answers with that status, PATH=break breaks off "
                   "in the middle; may be given more than once")
      ->type_name("RULE")
      ->allow_extra_args(false);
  serve->add_flag("--quiet", options.quiet, "Prints its address, but not the requests");
  addCommand(app, options, "session", "Reads calls as JSON lines, and prints what comes of them",
             runSession);
  auto* const gallery = addCommand(app, options, "gallery",
                                   "Writes a page that shows every loaded resource", runGallery);
  gallery->add_option("FILE.html", options.page, "The page to write")->required()->type_name("");
}

ParsedCommandLine refuse(const std::string& why) {
  complain(why + " (see kivresource --help)");
  return {std::nullopt, exitStatus::usage};
}

std::string onOneLine(std::string text) {
  for (char& character : text) {
    if (character == '\n') character = ' ';
  }
  while (!text.empty() && text.back() == ' ')
    text.pop_back();
  return text;
}

/// The error message, reworded where that of the library would be misleading.
std::string whatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  const auto unknown = app.remaining();
  if (!app.get_subcommands().empty()) return onOneLine(error.what());
  if (!unknown.empty()) {
    return (unknown.front().starts_with('-') ? "there is no option " : "there is no command ") +
           unknown.front();
  }
  const auto* const required = dynamic_cast<const CLI::RequiredError*>(&error);
  return required ? "a command is missing" : onOneLine(error.what());
}

}  // namespace

ParsedCommandLine parseCommandLine(int count, const char* const* arguments) {
  Options options;
  CLI::App app(description, "kivresource");
  app.set_version_flag("--version", KivResourceVersionString);
  app.require_subcommand(1);
  app.footer(footer);
  app.get_formatter()->column_width(30);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.get_formatter()->label("REQUIRED", "");
  addGeneralOptions(app, options);
  addPassCommands(app, options);
  addMaintenanceCommands(app, options);
  addOtherCommands(app, options);
  try {
    app.parse(count, arguments);
  } catch (const CLI::Success& wish) {  // help, or the version
    app.exit(wish);
    return {std::nullopt, exitStatus::success};
  } catch (const CLI::ParseError& error) {
    return refuse(whatIsWrong(app, error));
  }
  return {std::move(options), exitStatus::success};
}

}  // namespace tool
