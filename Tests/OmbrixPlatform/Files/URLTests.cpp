#include "OmbrixPlatform/Files/URL.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "Tests/Support/Items.hpp"

namespace ombrix::platform {
namespace {

std::string resolved(std::string_view reference, std::string_view base) {
  const auto url = URL::parse(reference, URL::parse(base).value());
  return url ? url->absoluteString() : "nothing";
}

// The examples of RFC 3986, sections 5.4.1 and 5.4.2: catches every wrong turn in resolving.
TEST(URLTests, ResolvesTheExamplesOfTheStandard) {
  // Each reference with its result; one that begins with "/" stands behind "http://a".
  std::istringstream examples(
      "g:h g:h   g /b/c/g   ./g /b/c/g   g/ /b/c/g/   /g /g   //g http://g   ?y /b/c/d;p?y  "
      "g?y /b/c/g?y   #s /b/c/d;p?q#s   g#s /b/c/g#s   g?y#s /b/c/g?y#s   ;x /b/c/;x  "
      "g;x /b/c/g;x   g;x?y#s /b/c/g;x?y#s   . /b/c/   ./ /b/c/   .. /b/   ../ /b/  "
      "../g /b/g   ../.. /   ../../ /   ../../g /g   ../../../g /g   ../../../../g /g  "
      "/./g /g   /../g /g   g. /b/c/g.   .g /b/c/.g   g.. /b/c/g..   ..g /b/c/..g  "
      "./../g /b/g   ./g/. /b/c/g/   g/./h /b/c/g/h   g/../h /b/c/h  "
      "g;x=1/./y /b/c/g;x=1/y   g;x=1/../y /b/c/y   g?y/./x /b/c/g?y/./x  "
      "g?y/../x /b/c/g?y/../x   g#s/./x /b/c/g#s/./x   g#s/../x /b/c/g#s/../x  "
      "http:g http:g  ");
  std::string reference;
  for (std::string expected; examples >> reference >> expected;) {
    if (expected.starts_with('/')) expected.insert(0, "http://a");
    EXPECT_EQ(resolved(reference, "http://a/b/c/d;p?q"), expected) << reference;
  }
  EXPECT_EQ(resolved("", "http://a/b/c/d;p?q"), "http://a/b/c/d;p?q");
}

// Catches a path that turns into a host or a scheme when the dots before it are taken away.
TEST(URLTests, ResolvingNeverMovesAPartIntoAnother) {
  EXPECT_EQ(resolved("g", "http://a"), "http://a/g");
  EXPECT_EQ(resolved("..//g", "s:/b/c"), "s:/.//g");
  EXPECT_EQ(resolved("s:/..//g", "http://a/b"), "s:/.//g");
  EXPECT_EQ(resolved("./s:g", "b"), "./s:g");
  EXPECT_EQ(resolved(".", "b"), "nothing");
  EXPECT_EQ(resolved("a b", "http://a/"), "nothing");
}

// Catches parts cut at the wrong delimiter, escapes decoded where they are data and kept where not.
TEST(URLTests, TakesApart) {
  const auto url =
      URL::parse("HTTPS://me:pw@ex%41mple.test:8443/a%2Fb/c%20d/?q=%26&r=?/#top?").value();
  EXPECT_EQ(url.scheme(), "HTTPS");
  EXPECT_EQ(url.userInfo(), "me:pw");
  EXPECT_EQ(url.host(), "exAmple.test");
  EXPECT_EQ(url.port(), 8443);
  EXPECT_EQ(url.path(), "/a/b/c d");
  EXPECT_EQ(url.encodedPath(), "/a%2Fb/c%20d/");
  EXPECT_EQ(url.query(), "q=%26&r=?/");
  EXPECT_EQ(url.fragment(), "top?");
  EXPECT_TRUE(url.hasDirectoryPath());

  const auto literal = URL::parse("http://[::1]:80").value();
  EXPECT_EQ(literal.host(), "::1");
  EXPECT_EQ(literal.port(), 80);
  EXPECT_EQ(literal.path(), "");

  const auto relative = URL::parse("a/b?").value();
  EXPECT_EQ(relative.scheme(), std::nullopt);
  EXPECT_EQ(relative.host(), std::nullopt);
  EXPECT_EQ(relative.port(), std::nullopt);
  EXPECT_EQ(relative.query(), "");
  EXPECT_EQ(relative.fragment(), std::nullopt);
}

// Catches text that is let through and would mean something else to the next reader.
TEST(URLTests, InvalidTextGivesNothing) {
  constexpr std::string_view kInvalid =
      "| |http://a b/|http://a/\x01|http://a/%|http://a/%4|http://a/%zz|http://a/ä|http://a/b#c#d|"
      "http://a/[b]|http://[::1|http://[::1]x/|http://[1.2.3.4]/|http://a:65536/|http://a:8x/|"
      "http://a:-1/|http://u@v@w/|1a:b|:a|a\"b|a\\b|<a>|http://[fe80::1%25eth0]/|http://[v.x]/";
  for (const auto& text : testing::itemsOf(kInvalid, '|')) {
    EXPECT_FALSE(URL::parse(text)) << text;
  }
  EXPECT_FALSE(URL::parse(std::string_view("http://a/\0b", 11)));
  for (const char* text :
       {"http://a:/", "http://[v1.x:y]/", "mailto:a@b", "file:///", "?", "//h"}) {
    EXPECT_TRUE(URL::parse(text)) << text;
  }
}

// Catches a folder mark that is lost or doubled, and names that do not survive the encoding.
TEST(URLTests, FileURLs) {
  EXPECT_EQ(URL::fileURL("/a/b").absoluteString(), "file:///a/b");
  EXPECT_EQ(URL::fileURL("/a/b/").absoluteString(), "file:///a/b/");
  EXPECT_EQ(URL::fileURL("/a/b//", false).absoluteString(), "file:///a/b");
  EXPECT_EQ(URL::fileURL("/a/b", true).absoluteString(), "file:///a/b/");
  EXPECT_EQ(URL::fileURL("/", false).absoluteString(), "file:///");
  EXPECT_EQ(URL::fileURL("/a b/ü#?%").absoluteString(), "file:///a%20b/%C3%BC%23%3F%25");
  EXPECT_EQ(URL::fileURL("x/y").path(), (std::filesystem::current_path() / "x/y").string());
  EXPECT_EQ(URL::fileURL("").path(), std::filesystem::current_path().string());
  EXPECT_TRUE(URL::fileURL("").hasDirectoryPath());
  EXPECT_TRUE(URL::parse("FILE:///a")->isFileURL());
  EXPECT_FALSE(URL::parse("http://a")->isFileURL());

  std::string everyByte("/");
  for (int byte = 1; byte < 256; ++byte) everyByte.push_back(static_cast<char>(byte));
  const URL url = URL::fileURL(everyByte);
  EXPECT_EQ(url.path(), everyByte);
  EXPECT_EQ(URL::parse(url.absoluteString()), url);
}

// Catches slashes that are doubled, names that break out of the path, queries that are dropped.
TEST(URLTests, AppendsAndTakesPathComponents) {
  struct Case {
    const char *url, *name, *appended, *parent;
  };
  constexpr Case kCases[] = {
      {"file:///a", "b", "file:///a/b", "file:///"},
      {"file:///a/", "b/", "file:///a/b/", "file:///"},
      {"file:///a/b/", "/c d?", "file:///a/b/c%20d%3F", "file:///a/"},
      {"file:///", "b", "file:///b", "file:///"},
      {"http://h", "b", "http://h/b", "http://h"},
      {"http://h/a?q#f", "b/c", "http://h/a/b/c?q#f", "http://h/?q#f"},
      {"a", "b", "a/b", "./"},
      {"?q", "x:y", "./x:y?q", "?q"},
      {"/", "//b", "/b", "/"},
      {"s:/.//b", "c", "s:/.//b/c", "s:/.//"},
  };
  for (const auto& [text, name, appended, parent] : kCases) {
    const URL url = URL::parse(text).value();
    const URL longer = url.appendingPathComponent(name);
    EXPECT_EQ(longer.absoluteString(), appended) << text;
    EXPECT_EQ(URL::parse(appended)->query(), longer.query()) << text;
    EXPECT_EQ(url.deletingLastPathComponent().absoluteString(), parent) << text;
  }
  const URL folder = URL::fileURL("/a");
  EXPECT_EQ(folder.appendingPathComponent("b", true).absoluteString(), "file:///a/b/");
  EXPECT_EQ(folder.appendingPathComponent("b/", false).absoluteString(), "file:///a/b");
  EXPECT_EQ(folder.appendingPathComponent("", true).absoluteString(), "file:///a/");
}

// Catches extensions taken from a folder's name, a hidden file's name or an escape.
TEST(URLTests, NamesAndExtensions) {
  struct Case {
    const char *url, *name, *extension, *without;
  };
  constexpr Case kCases[] = {
      {"file:///a/b.data", "b.data", "data", "file:///a/b"},
      {"file:///a.b/c/", "c", "", "file:///a.b/c/"},
      {"file:///a/b.x.tar/", "b.x.tar", "tar", "file:///a/b.x/"},
      {"file:///a/.profile", ".profile", "", "file:///a/.profile"},
      {"file:///a/b.", "b.", "", "file:///a/b."},
      {"file:///a/b%2Fc.d", "b/c.d", "d", "file:///a/b%2Fc"},
      {"file:///", "/", "", "file:///"},
      {"http://h.test", "", "", "http://h.test"},
  };
  for (const auto& [text, name, extension, without] : kCases) {
    const URL url = URL::parse(text).value();
    EXPECT_EQ(url.lastPathComponent(), name) << text;
    EXPECT_EQ(url.pathExtension(), extension) << text;
    EXPECT_EQ(url.deletingPathExtension().absoluteString(), without) << text;
  }
}

// Catches characters that the query set must keep, such as "&", and ones it must not.
TEST(URLTests, PercentEncoding) {
  EXPECT_EQ(addingPercentEncoding("a b&c=d?/#%é", URLAllowedCharacters::urlQueryAllowed),
            "a%20b&c=d?/%23%25%C3%A9");
  EXPECT_EQ(addingPercentEncoding("a?b", URLAllowedCharacters::urlPathAllowed), "a%3Fb");
  EXPECT_EQ(removingPercentEncoding("%41%c3%A9+"), "Aé+");
  EXPECT_EQ(removingPercentEncoding("%4"), std::nullopt);
  EXPECT_EQ(removingPercentEncoding("100%"), std::nullopt);
}

}  // namespace
}  // namespace ombrix::platform
