#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"

namespace {

using kiv::URL;

URL url(std::string_view string) {
  return URL::fromString(string).value();
}

/// The target, or the name of the error code if the redirect is rejected.
std::string target(std::string_view from, std::string_view location) {
  const auto result = kiv::redirectTarget(url(from), location);
  if (result) return result->absoluteString();
  switch (static_cast<KivRESTServiceErrorCode>(result.error().code)) {
    case KivRESTServiceErrorCode::refusedRedirect:
      return "refused";
    case KivRESTServiceErrorCode::malformedResponse:
      return "malformed";
    default:
      return "another error";
  }
}

TEST(RedirectPolicy, FollowsTheFiveStatusesAlone) {
  for (int status = 100; status < 600; ++status) {
    const bool isOne =
        status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
    EXPECT_EQ(kiv::isRedirect(status), isOne) << status;
  }
}

struct RedirectCase {
  const char* name;
  const char* from;
  const char* location;
  const char* target;
};

class RedirectPolicyTable : public testing::TestWithParam<RedirectCase> {};

TEST_P(RedirectPolicyTable, LeadsTo) {
  EXPECT_EQ(target(GetParam().from, GetParam().location), GetParam().target);
}

INSTANTIATE_TEST_SUITE_P(
    All, RedirectPolicyTable,
    testing::Values(
        RedirectCase{"Absolute", "http://a.test/x", "http://b.test/y", "http://b.test/y"},
        RedirectCase{"AbsolutePath", "http://a.test:81/d/x?q", "/y", "http://a.test:81/y"},
        RedirectCase{"RelativePath", "http://a.test/d/x", "y", "http://a.test/d/y"},
        RedirectCase{"ParentPath", "http://a.test/d/e/x", "../y", "http://a.test/d/y"},
        RedirectCase{"QueryAlone", "http://a.test/d/x", "?v=2", "http://a.test/d/x?v=2"},
        RedirectCase{"SchemeRelative", "https://a.test/x", "//b.test/y", "https://b.test/y"},
        RedirectCase{"SpaceIsEscaped", "http://a.test/x", "/a b.png", "http://a.test/a%20b.png"},
        RedirectCase{"HTTPToHTTPS", "http://a.test/x", "https://a.test/x", "https://a.test/x"},
        RedirectCase{"HTTPSToHTTPS", "https://a.test/x", "https://b.test/", "https://b.test/"},
        RedirectCase{"UpperCaseScheme", "http://a.test/x", "HTTP://b.test/y", "http://b.test/y"},
        RedirectCase{"HTTPSToHTTP", "https://a.test/x", "http://a.test/x", "refused"},
        RedirectCase{"HTTPSToUpperCaseHTTP", "https://a.test/x", "HTTP://a.test/x", "refused"},
        RedirectCase{"File", "http://a.test/x", "file:///etc/passwd", "refused"},
        RedirectCase{"FileWithoutSlashes", "http://a.test/x", "file:etc", "refused"},
        RedirectCase{"Gopher", "http://a.test/x", "gopher://a.test/x", "refused"},
        RedirectCase{"FTP", "https://a.test/x", "ftp://a.test/x", "refused"},
        RedirectCase{"Script", "http://a.test/x", "javascript:alert(1)", "refused"},
        RedirectCase{"Mail", "http://a.test/x", "mailto:a@b.test", "refused"},
        RedirectCase{"Data", "http://a.test/x", "data:text/plain,x", "refused"},
        RedirectCase{"NoHost", "http://a.test/x", "http:///y", "malformed"},
        RedirectCase{"SchemeWithoutSlashes", "http://a.test/x", "http:y", "malformed"},
        RedirectCase{"MailWithSpace", "http://a.test/x", "mailto:a b@b.test", "refused"},
        RedirectCase{"ColonInPath", "http://a.test/x", "./y:z", "http://a.test/y:z"},
        RedirectCase{"ColonInQuery", "http://a.test/x", "?y:z", "http://a.test/x?y:z"},
        RedirectCase{"BadPort", "http://a.test/x", "http://b.test:x/y", "malformed"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(RedirectPolicy, URLsWithoutSchemeOrHostCannotBeLoaded) {
  EXPECT_EQ(kiv::validateURL(url("http://a.test/x")), "");
  EXPECT_EQ(kiv::validateURL(url("HTTPS://a.test/x")), "");
  EXPECT_NE(kiv::validateURL(url("a.test/x")), "");
  EXPECT_NE(kiv::validateURL(url("//a.test/x")), "");
  EXPECT_NE(kiv::validateURL(url("/x")), "");
  EXPECT_NE(kiv::validateURL(url("http:x")), "");
  EXPECT_NE(kiv::validateURL(url("ftp://a.test/x")), "");
  EXPECT_NE(kiv::validateURL(url("file:///etc/passwd")), "");
}

}  // namespace
