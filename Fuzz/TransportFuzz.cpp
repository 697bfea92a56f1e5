// A client fetches two files, one after the other, through libcurl from a scripted server. The
// input is the script: settings and a sequence of replies. A reply is raw bytes, or a valid
// response that is then corrupted as the input says.
//
// Each file has two versions, with different bytes at each offset. A body that the client accepts
// must be one of them, complete. There are two exceptions: a response whose Content-Length is that
// of a part, and a body that ends with its connection, if the settings allow it and the metrics say
// so. After raw bytes only the sizes are checked.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "Fuzz/Require.h"
#include "Fuzz/ScriptedServer.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

namespace fs = std::filesystem;
using kiv::fuzz::require;
using kiv::fuzz::ScriptedServer;
using End = ScriptedServer::End;

// --- The input -----------------------------------------------------------------------------------

/// Reads values from the input; zeros and empty texts beyond its end.
class Input {
 public:
  explicit Input(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] bool isAtEnd() const noexcept { return bytes_.empty(); }
  std::size_t byte() {
    if (bytes_.empty()) return 0;
    const auto value = static_cast<unsigned char>(bytes_.front());
    bytes_.remove_prefix(1);
    return value;
  }
  std::size_t word() {
    const auto high = byte();
    return high << 8 | byte();
  }
  std::string text(std::size_t size) {
    const auto taken = bytes_.substr(0, size);
    bytes_.remove_prefix(taken.size());
    return std::string(taken);
  }

 private:
  std::string_view bytes_;
};

// --- The files -----------------------------------------------------------------------------------

/// The bytes of a version of a file: different at each offset, and for each file and version.
std::string contentOf(std::string_view path, std::size_t version, std::size_t size) {
  std::string content;
  content.reserve(size + 32);
  for (std::size_t number = 0; content.size() < size; ++number)
    content.append(path).append(std::to_string(version)).append(std::to_string(number * 40503));
  content.resize(size);
  return content;
}

// --- The replies ---------------------------------------------------------------------------------

enum class Framing {
  length,
  tooLong,
  tooShort,
  chunked,
  unendedChunks,
  wrongChunk,
  connection,
  http10,
  lengthAndChunks,
  twoLengths,
  count,
};

/// A response under construction.
struct Built {
  int status = 200;
  std::string headers;
  std::string content;  ///< That it tells to be its body.
  Framing framing = Framing::length;
  std::size_t detail = 0;
};

std::string chunksOf(const Built& built) {
  const std::size_t largest = built.detail + 1;
  std::string chunks;
  for (std::size_t at = 0; at < built.content.size(); at += largest) {
    const auto piece = built.content.substr(at, largest);
    std::array<char, 20> size{};
    std::snprintf(size.data(), size.size(), "%zx\r\n", piece.size());
    chunks.append(size.data()).append(piece).append("\r\n");
  }
  if (built.framing == Framing::wrongChunk) return chunks + "x5\r\nabcde\r\n0\r\n\r\n";
  return built.framing == Framing::unendedChunks ? chunks : chunks + "0\r\n\r\n";
}

std::string lengthHeader(std::size_t length) {
  return "Content-Length: " + std::to_string(length) + "\r\n";
}

/// The headers that delimit the body, and the body.
std::string framed(const Built& built) {
  const std::size_t length = built.content.size();
  switch (built.framing) {
    case Framing::tooLong:
      return lengthHeader(length + 1 + built.detail) + "\r\n" + built.content;
    case Framing::tooShort:
      return lengthHeader(length - std::min(length, built.detail)) + "\r\n" + built.content;
    case Framing::chunked:
    case Framing::unendedChunks:
    case Framing::wrongChunk:
      return "Transfer-Encoding: chunked\r\n\r\n" + chunksOf(built);
    case Framing::connection:
    case Framing::http10:
      return "\r\n" + built.content;
    case Framing::lengthAndChunks:
      return lengthHeader(built.detail) + "Transfer-Encoding: chunked\r\n\r\n" + chunksOf(built);
    case Framing::twoLengths:
      return lengthHeader(length) + lengthHeader(built.detail) + "\r\n" + built.content;
    default:
      return lengthHeader(length) + "\r\n" + built.content;
  }
}

std::string bytesOf(const Built& built) {
  const char* const version = built.framing == Framing::http10 ? "HTTP/1.0 " : "HTTP/1.1 ";
  return version + std::to_string(built.status) + " Status\r\n" + built.headers + framed(built);
}

/// What the server sends, and which results are allowed then. Called on the server's thread.
class Script {
 public:
  explicit Script(std::string_view text) : input_(text) {
    const auto flags = input_.byte();
    takesBodiesWithoutLength = flags & 1;
    spools = flags & 2;
    sizes_ = {input_.byte() * 37, input_.byte() * 37};
    for (const std::string path : {"/a", "/b"}) {
      for (const std::size_t version : {1U, 2U})
        whole_.insert(contentOf(path, version, sizeOf(path)));
    }
  }

  ScriptedServer::Reply reply(const ScriptedServer::Request& request) {
    const std::lock_guard lock(mutex_);
    if (input_.isAtEnd()) return {};
    const auto kind = input_.byte();
    auto reply = kind % 8 == 7 ? rawReply() : builtReply(request, kind);
    largestReply_ = std::max(largestReply_, reply.bytes.size());
    return reply;
  }

  void checkBody(std::string_view body, bool endedWithConnection) {
    const std::lock_guard lock(mutex_);
    if (wasRaw_) {
      const auto most = std::max(largestReply_, std::size_t{2} * 255 * 37);
      return require(body.size() <= 2 * most, "a body comes from what was sent");
    }
    const std::string text(body);
    const bool isPart = std::any_of(whole_.begin(), whole_.end(),
                                    [&](const auto& whole) { return whole.starts_with(text); });
    const bool isRight = whole_.contains(text) || (endedWithConnection && isPart);
    require(isRight, "a body that is handed on is whole");
  }

  bool takesBodiesWithoutLength = false;
  bool spools = false;

 private:
  std::size_t sizeOf(std::string_view path) const { return sizes_[path == "/b" ? 1 : 0]; }

  ScriptedServer::Reply rawReply() {
    wasRaw_ = true;
    const auto size = input_.word() % 4096;
    return {input_.text(size), input_.byte(), End::close};
  }

  ScriptedServer::Reply builtReply(const ScriptedServer::Request& request, std::size_t kind) {
    const auto shape = input_.byte();
    Built built;
    built.framing = static_cast<Framing>(shape % static_cast<std::size_t>(Framing::count));
    built.detail = input_.word();
    choose(built, request, kind);
    addHeader(built);
    ScriptedServer::Reply reply{bytesOf(built), input_.word(), End::keepOpen};
    const bool isCut = kind & 0x80;
    const bool endsItself = built.framing == Framing::length || built.framing == Framing::chunked;
    if (isCut) reply.bytes.resize(input_.word() % (reply.bytes.size() + 1));
    if (!isCut && endsItself && (kind & 0x40)) reply.bytes += input_.text(input_.byte());
    if (isCut || !endsItself || (shape & 0x80)) reply.end = shape & 0x40 ? End::reset : End::close;
    // Its Content-Length makes it look complete.
    if (built.framing == Framing::tooShort && built.status == 200) notePart(built);
    return reply;
  }

  void notePart(const Built& built) {
    const auto size = built.content.size();
    whole_.insert(built.content.substr(0, size - std::min(size, built.detail)));
  }

  /// Any other header.
  void addHeader(Built& built) {
    auto text = input_.text(input_.byte() % 32);
    std::replace_if(
        text.begin(), text.end(), [](char one) { return one == '\r' || one == '\n'; }, ' ');
    if (!text.empty()) built.headers += "X-" + text + "\r\n";
  }

  void choose(Built& built, const ScriptedServer::Request& request, std::size_t kind) {
    static constexpr std::array tags{"\"1\"", "\"2\"", "W/\"1\"", ""};
    const std::string tag = tags[(kind >> 3) % tags.size()];
    const std::size_t version = tag == "\"2\"" ? 2 : 1;
    built.content = contentOf(request.path, version, sizeOf(request.path));
    if (!tag.empty()) built.headers += "ETag: " + tag + "\r\n";
    switch (kind % 8) {
      case 0:
      case 1:  // as a proper server does
        if (request.first > 0 && request.ifRange == tag) makeRest(built, request.first, 0);
        break;
      case 2:  // another part than was asked for, and it says so
        makeRest(built, request.first + 1, 0);
        break;
      case 3:  // of a file of another length, or without having been asked
        makeRest(built, request.first, 1);
        break;
      case 4: {
        static constexpr std::array statuses{404, 416, 503, 204, 304, 500, 403, 206};
        built.status = statuses[built.detail % statuses.size()];
        built.headers += "Retry-After: 1\r\n";
        break;
      }
      case 5:
        built.status = 302;
        built.headers += built.detail & 1 ? "Location: /b\r\n" : "Location: /a\r\n";
        break;
      default:
        break;
    }
  }

  static void makeRest(Built& built, std::size_t first, std::size_t more) {
    const auto size = built.content.size();
    built.status = 206;
    built.headers += "Content-Range: bytes " + std::to_string(first) + "-" +
                     std::to_string(size - 1 + more) + "/" + std::to_string(size + more) + "\r\n";
    built.content.erase(0, first);
  }

  std::mutex mutex_;
  Input input_;
  std::array<std::size_t, 2> sizes_{};
  std::set<std::string> whole_;
  std::size_t largestReply_ = 0;
  bool wasRaw_ = false;
};

// --- The client ----------------------------------------------------------------------------------

/// A temporary directory, removed at the end of the program.
struct Directory {
  Directory() : path((fs::temp_directory_path() / "KivResourceFuzz-XXXXXX").string()) {
    require(mkdtemp(path.data()) != nullptr, "there is a directory");
  }
  ~Directory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  std::string path;
};

kiv::TransferSettings settingsFor(const Script& script, const std::string& spool) {
  using std::chrono::milliseconds;
  kiv::TransferSettings settings;
  settings.threads = 1;
  settings.firstRetryDelay = settings.longestRetryDelay = settings.longestRetryAfter =
      milliseconds(0);
  settings.triesInAll = 5;
  settings.mostRedirects = 3;
  settings.takesBodiesWithoutLength = script.takesBodiesWithoutLength;
  settings.largestBodyInMemory = 500;
  settings.proxy = "";
  if (script.spools) settings.spoolDirectory = spool;
  return settings;
}

void fetch(KivRESTService& client, Script& script, const std::string& url) {
  int completions = 0;
  auto task = std::make_shared<KivRESTServiceTask>();
  task->setRequest(kiv::URLRequest(kiv::URL::fromString(url).value()));
  task->setCompletionHandler([&](KivRESTServiceTask& ended) {
    ++completions;
    const auto& body = ended.returnedData();
    require(body.has_value() == (ended.response() && ended.response()->statusCode() == 200),
            "a body comes with the status 200");
    require(ended.responseError().has_value() != ended.response().has_value(),
            "a task ends with a response or an error");
    if (body) script.checkBody(body->view(), ended.metrics().endedWithConnection);
  });
  client.queue(std::move(task));
  while (!client.currentQueue().empty())
    kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(100));
  require(completions == 1, "a task is completed once");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const Directory directory;
  const std::string spool = directory.path + "/spool";
  Script script(kiv::fuzz::textOf(bytes, std::min(size, std::size_t{16} * 1024)));
  const ScriptedServer server([&](const auto& request) { return script.reply(request); });
  {
    KivRESTService client(settingsFor(script, spool));
    for (const char* const path : {"/a", "/b"})
      fetch(client, script, server.url(path));
  }
  fs::remove_all(spool);
  return 0;
}
