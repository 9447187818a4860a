// What "view" serves, and above all what it does not.

#include "CommandRun.h"
#include "Http.h"
#include "ShellFilter.h"

#include <Failure.h>
#include <page/HttpRequest.h>
#include <page/ViewServer.h>

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace kel::tests;
using kelsrc::cli::ServedFile;
using kelsrc::cli::ViewServer;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string PAGE =
    "<!doctype html><head><meta http-equiv=\"Content-Security-Policy\" content=\"default-src "
    "'none'; script-src 'sha256-abc='\" /><title>kelSrc</title></head>";
const std::string SECRET = "nobody may read this";

class ViewServing : public testing::Test {
protected:
    ViewServing() {
        writeFile(folder / "secret.src", SECRET);
        server.start();
    }

    HttpAnswer get(const std::string& target, const std::string& headers = "",
                   const std::string& method = "GET") {
        return ask(server.port(), target, headers, method);
    }

    TempFolder folder;
    const std::string content = "0123456789";
    const std::string file = writeFile(folder / "engine.src", content);
    const std::string odd = writeFile(folder / "a b%#?+\xc3\xa9.src", "odd");
    ViewServer server{PAGE, {{"engine.src", file}, {"a b%#?+\xc3\xa9.src", odd}}, 0};
};

TEST_F(ViewServing, PageIsAtTheRoot) {
    const HttpAnswer answer = get("/");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.body, PAGE);
}

TEST_F(ViewServing, PageIsTheSameWithAQuery) {
    EXPECT_EQ(get("/?src=files/0/engine.src").body, PAGE);
}

TEST_F(ViewServing, PageHasItsOwnPolicyAndCannotBeFramed) {
    EXPECT_EQ(get("/").header("Content-Security-Policy"),
              "default-src 'none'; script-src 'sha256-abc='; frame-ancestors 'none'");
}

TEST_F(ViewServing, EveryAnswerForbidsGuessingAndSharing) {
    for (const char* target : {"/", "/files/0/engine.src", "/nothing"}) {
        const HttpAnswer answer = get(target);
        EXPECT_EQ(answer.header("X-Content-Type-Options"), "nosniff") << target;
        EXPECT_EQ(answer.header("Cross-Origin-Resource-Policy"), "same-origin") << target;
        EXPECT_EQ(answer.header("Access-Control-Allow-Origin"), "") << target;
        EXPECT_EQ(answer.header("Cache-Control"), "no-store") << target;
    }
}

TEST_F(ViewServing, PageIsCompressedForThoseWhoTakeThat) {
    const HttpAnswer answer = get("/", "Accept-Encoding: br, gzip;q=0.5\r\n");
    EXPECT_EQ(answer.header("Content-Encoding"), "gzip");
    EXPECT_EQ(filtered("gzip -dc", answer.body), PAGE);
}

TEST_F(ViewServing, FileIsUnderItsNumberAndName) {
    const HttpAnswer answer = get("/files/0/engine.src");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/octet-stream");
    EXPECT_EQ(answer.header("Content-Length"), "10");
    EXPECT_EQ(answer.header("Accept-Ranges"), "bytes");
    EXPECT_EQ(answer.body, content);
}

TEST_F(ViewServing, OddNamesAreEncodedInPathsAndOnceMoreInTheAddress) {
    EXPECT_EQ(server.pathOf(1), "files/1/a%20b%25%23%3F%2B%C3%A9.src");
    EXPECT_EQ(server.address(), "http://127.0.0.1:" + std::to_string(server.port()) +
                                    "/?src=files/0/engine.src&src=files/1/"
                                    "a%2520b%2525%2523%253F%252B%25C3%25A9.src");
    EXPECT_EQ(get('/' + server.pathOf(1)).body, "odd");
}

TEST_F(ViewServing, HeadHasTheLengthAndNoBody) {
    for (const char* headers : {"", "Range: bytes=2-4\r\n"}) {
        const HttpAnswer answer = get("/files/0/engine.src", headers, "HEAD");
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.header("Content-Length"), "10");
        EXPECT_THAT(answer.body, IsEmpty());
    }
}

TEST_F(ViewServing, RangesAreSingleOpenOrSuffixes) {
    struct Case {
        const char *range, *contentRange, *body;
    };
    for (const Case& c :
         {Case{"0-0", "0-0", "0"}, Case{"2-4", "2-4", "234"}, Case{"7-", "7-9", "789"},
          Case{"-3", "7-9", "789"}, Case{"-99", "0-9", "0123456789"}, Case{"8-99999999999", "8-9", "89"}}) {
        const HttpAnswer answer = get("/files/0/engine.src", std::string("Range: bytes=") + c.range + "\r\n");
        EXPECT_EQ(answer.status, 206) << c.range;
        EXPECT_EQ(answer.header("Content-Range"), std::string("bytes ") + c.contentRange + "/10");
        EXPECT_EQ(answer.header("Content-Length"), std::to_string(std::string(c.body).size()));
        EXPECT_EQ(answer.body, c.body) << c.range;
    }
}

TEST_F(ViewServing, RangesBehindTheEndAreRefused) {
    for (const char* range : {"10-", "10-11", "999999999999999999-", "-0"}) {
        const HttpAnswer answer = get("/files/0/engine.src", std::string("Range: bytes=") + range + "\r\n");
        EXPECT_EQ(answer.status, 416) << range;
        EXPECT_EQ(answer.header("Content-Range"), "bytes */10") << range;
    }
}

TEST_F(ViewServing, SeveralRangesAreAnsweredWithTheWholeFile) {
    const HttpAnswer answer = get("/files/0/engine.src", "Range: bytes=0-1,4-5\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, content);
}

TEST_F(ViewServing, NonsensicalRangesGetNoPart) {
    for (const char* range :
         {"bytes=4-2", "bytes=x-", "bytes=--1", "lines=1-2", "bytes=99999999999999999999999-"})
        EXPECT_NE(get("/files/0/engine.src", std::string("Range: ") + range + "\r\n").status, 206) << range;
}

TEST_F(ViewServing, RangeOfAnotherVersionIsAnsweredWithTheWholeFile) {
    const std::string tag = get("/files/0/engine.src").header("ETag");
    const auto part = [&](const std::string& version) {
        return get("/files/0/engine.src", "Range: bytes=2-4\r\nIf-Range: " + version + "\r\n").body;
    };
    EXPECT_EQ(part(tag), "234");
    EXPECT_EQ(part("\"older\""), content);
}

TEST_F(ViewServing, FilesAreCompressedForThoseWhoTakeThat) {
    std::string large;
    for (int i = 0; i < 200000; ++i)
        large += std::to_string(i);
    writeFile(file, large);
    const HttpAnswer answer = get("/files/0/engine.src", "Accept-Encoding: gzip\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Encoding"), "gzip");
    const std::string compressed = unchunked(answer.body);
    EXPECT_LT(compressed.size(), large.size());
    EXPECT_EQ(filtered("gzip -dc", compressed), large);
}

TEST_F(ViewServing, RangesAndClientsThatRefuseItGetNoCompression) {
    const HttpAnswer part = get("/files/0/engine.src", "Accept-Encoding: gzip\r\nRange: bytes=1-\r\n");
    EXPECT_EQ(part.header("Content-Encoding"), "");
    EXPECT_EQ(part.body, "123456789");
    for (const char* accepted : {"identity", "gzip;q=0", "gzip; q=0.0", "xgzip", "br"})
        EXPECT_EQ(get("/files/0/engine.src", std::string("Accept-Encoding: ") + accepted + "\r\n").body,
                  content)
            << accepted;
}

TEST_F(ViewServing, LargeFilesAreSentAsTheyAre) {
    const std::string large(std::size_t(9) << 20, 'x');
    writeFile(file, large);
    const HttpAnswer answer = get("/files/0/engine.src", "Accept-Encoding: gzip\r\n");
    EXPECT_EQ(answer.header("Content-Encoding"), "");
    EXPECT_EQ(answer.body.size(), large.size());
}

TEST_F(ViewServing, VersionsOfAFileHaveDifferentTags) {
    const std::string first = get("/files/0/engine.src").header("ETag");
    const std::string packed = get("/files/0/engine.src", "Accept-Encoding: gzip\r\n").header("ETag");
    writeFile(file, "longer than before");
    const std::string second = get("/files/0/engine.src").header("ETag");
    EXPECT_THAT(first, StartsWith("\""));
    EXPECT_NE(first, second);
    EXPECT_NE(first, packed);
}

// ---- What changes meanwhile -----------------------------------------------------------------------------

TEST_F(ViewServing, ChangedFileIsSeenByTheNextRequest) {
    get("/files/0/engine.src");
    writeFile(file, "new");
    EXPECT_EQ(get("/files/0/engine.src").body, "new");
}

TEST_F(ViewServing, WhatIsNoFileAnyMoreIsNotFound) {
    ::unlink(file.c_str());
    EXPECT_EQ(get("/files/0/engine.src").status, 404);
    ::mkdir(file.c_str(), 0700);
    EXPECT_EQ(get("/files/0/engine.src").status, 404);
    ::rmdir(file.c_str());
    ::mkfifo(file.c_str(), 0600);
    EXPECT_EQ(get("/files/0/engine.src").status, 404);
}

TEST_F(ViewServing, FileThatShrinksWhileItIsSentBreaksTheConnection) {
    const std::size_t size = std::size_t(48) << 20; // more than sockets hold
    writeFile(file, std::string(size, 'x'));
    HttpConnection connection(server.port());
    connection.send("GET /files/0/engine.src HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                    "\r\nConnection: close\r\n\r\n");
    const std::string begin = connection.until("\r\n\r\n");
    EXPECT_THAT(begin, HasSubstr("Content-Length: " + std::to_string(size)));
    ASSERT_EQ(::truncate(file.c_str(), 1), 0);
    EXPECT_LT(connection.rest().size(), size);
}

// ---- What is not served ---------------------------------------------------------------------------------

TEST_F(ViewServing, NoPathLeadsOutOfTheGivenFiles) {
    ::symlink((folder / "secret.src").c_str(), (folder / "link.src").c_str());
    ::mkdir((folder / "files").c_str(), 0700);
    const std::string absolute = folder / "secret.src";
    for (const std::string& target : {
             std::string("/files/0/../../etc/passwd"),
             std::string("/files/0/../secret.src"),
             std::string("/files/0/secret.src"),
             std::string("/files/0/link.src"),
             std::string("/files/0/engine.src/../secret.src"),
             std::string("/files/0/engine.src/"),
             std::string("/files/0/./engine.src"),
             std::string("/files//0/engine.src"),
             std::string("//files/0/engine.src"),
             std::string("/files/0/%2e%2e%2fsecret.src"),
             std::string("/files/0/%2e%2e/secret.src"),
             std::string("/files/0/%252e%252e%252fsecret.src"),
             std::string("/files/0/..%5csecret.src"),
             std::string("/files/0/..\\secret.src"),
             std::string("/files/0/..%c0%afsecret.src"),
             std::string("/files/0/engine.src%00"),
             std::string("/files/0/engine.src%00.html"),
             std::string("/files/0/%"),
             std::string("/files/0/%2"),
             std::string("/files/0/%zz"),
             std::string("/files/00/engine.src"),
             std::string("/files/+0/engine.src"),
             std::string("/files/-1/engine.src"),
             std::string("/files/1/engine.src"),
             std::string("/files/2/engine.src"),
             std::string("/files/4294967296/engine.src"),
             std::string("/files/18446744073709551616/engine.src"),
             std::string("/files/0"),
             std::string("/files/0/"),
             std::string("/files/"),
             std::string("/FILES/0/engine.src"),
             std::string("/../../../../etc/passwd"),
             std::string("/etc/passwd"),
             std::string("/index.html"),
             std::string("/viewer.html"),
             absolute,
             "/files/0/" + absolute,
             "file://" + absolute,
             std::string("http://127.0.0.1/etc/passwd"),
             std::string("http://127.0.0.1:") + std::to_string(server.port()) + "/../../etc/passwd",
             std::string("*"),
             std::string("secret.src"),
         }) {
        const HttpAnswer answer = get(target);
        EXPECT_TRUE(answer.status == 404 || answer.status == 400) << target << ": " << answer.status;
        EXPECT_THAT(answer.body, Not(HasSubstr(SECRET))) << target;
        EXPECT_THAT(answer.body, Not(HasSubstr("root:"))) << target;
        EXPECT_THAT(answer.body, Not(HasSubstr(content))) << target;
    }
}

TEST_F(ViewServing, NulInARequestLineGetsNothing) {
    HttpConnection connection(server.port());
    connection.send(std::string("GET /files/0/engine.src") + '\0' + "/x HTTP/1.1\r\nHost: 127.0.0.1:" +
                    std::to_string(server.port()) + "\r\nConnection: close\r\n\r\n");
    const std::string text = connection.until("\r\n\r\n");
    EXPECT_THAT(text, Not(HasSubstr("200 OK")));
}

TEST_F(ViewServing, LinkThatWasGivenIsServedUnderItsOwnName) {
    const std::string link = folder / "link.src";
    ASSERT_EQ(::symlink(file.c_str(), link.c_str()), 0);
    ViewServer other(PAGE, {{"link.src", link}}, 0);
    other.start();
    EXPECT_EQ(ask(other.port(), "/files/0/link.src").body, content);
    EXPECT_EQ(ask(other.port(), "/files/0/engine.src").status, 404);
}

TEST_F(ViewServing, OnlyItsOwnNamesAreAnswered) {
    const std::string port = ':' + std::to_string(server.port());
    const auto status = [&](const std::string& hosts) {
        HttpConnection connection(server.port());
        connection.send("GET /files/0/engine.src HTTP/1.1\r\nConnection: close\r\n" + hosts + "\r\n");
        return answerOf(connection.rest()).status;
    };
    for (const std::string& host : {"127.0.0.1" + port, "localhost" + port, "LocalHost" + port})
        EXPECT_EQ(status("Host: " + host + "\r\n"), 200) << host;
    for (const std::string& host :
         {std::string("evil.example"), "evil.example" + port, std::string("127.0.0.1"),
          std::string("localhost:1"), "127.0.0.1" + port + ".evil.example", "127.0.0.1.evil.example" + port,
          "user@127.0.0.1" + port, std::string("")})
        EXPECT_EQ(status("Host: " + host + "\r\n"), 403) << host;
    EXPECT_EQ(status(""), 403);
    EXPECT_EQ(status("Host: 127.0.0.1" + port + "\r\nHost: evil.example\r\n"), 403);
}

TEST_F(ViewServing, OtherMethodsAreRefused) {
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH"}) {
        const HttpAnswer answer = get("/files/0/engine.src", "Content-Length: 0\r\n", method);
        EXPECT_EQ(answer.status, 405) << method;
        EXPECT_EQ(answer.header("Allow"), "GET, HEAD");
    }
    EXPECT_EQ(contentOf(file), content);
}

TEST_F(ViewServing, BodyIsNotTakenForAnotherRequest) {
    const std::string host = "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n";
    const std::string inner = "GET /files/0/engine.src HTTP/1.1\r\n" + host + "\r\n";
    for (const char* method : {"POST", "GET"}) {
        HttpConnection connection(server.port());
        connection.send(std::string(method) + " /nothing HTTP/1.1\r\n" + host +
                        "Content-Length: " + std::to_string(inner.size()) + "\r\n\r\n" + inner);
        EXPECT_THAT(connection.rest(), Not(HasSubstr(content))) << method;
    }
}

TEST_F(ViewServing, OtherAddressesOfThisMachineAreNotServed) {
    EXPECT_THROW(HttpConnection(server.port(), "127.0.0.2"), std::runtime_error);
}

// ---- Connections ----------------------------------------------------------------------------------------

TEST_F(ViewServing, ConnectionServesSeveralRequests) {
    HttpConnection connection(server.port());
    const std::string host = " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n";
    for (int i = 0; i < 20; ++i) {
        connection.send("GET /files/0/engine.src" + host + "\r\n");
        ASSERT_THAT(connection.until(content), HasSubstr(content));
    }
}

TEST_F(ViewServing, EndsWhateverIsOpen) {
    writeFile(file, std::string(std::size_t(64) << 20, 'x'));
    ViewServer other(PAGE, {{"engine.src", file}}, 0);
    other.start();
    const std::string host = " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(other.port()) + "\r\n";
    HttpConnection idle(other.port()), begun(other.port()), waiting(other.port()), stalled(other.port());
    begun.send("GET / HT");
    waiting.send("GET /" + host + "\r\n");
    waiting.until("</head>");
    stalled.send("GET /files/0/engine.src" + host + "\r\n");
    stalled.until("xxx"); // and nobody reads the rest
}

TEST_F(ViewServing, PortThatIsTakenIsAnError) {
    try {
        ViewServer other(PAGE, {}, server.port());
        FAIL() << "two servers at one port";
    } catch (const kelsrc::cli::Failure& failure) {
        EXPECT_EQ(failure.status(), kelsrc::cli::STATUS_NOT_WRITTEN);
        EXPECT_THAT(failure.what(), HasSubstr("Address already in use"));
    }
}

TEST_F(ViewServing, ServerThatNeverStartedEnds) {
    const ViewServer other(PAGE, {}, 0);
    EXPECT_GT(other.port(), 0);
}

} // namespace
