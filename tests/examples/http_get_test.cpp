#include "examples/http_get/Failed.h"
#include "examples/http_get/Response.h"
#include "examples/http_get/Url.h"

#include "tests/support/Child_process.h"
#include "tests/support/Reserved_port.h"
#include "tests/support/Temporary_folder.h"
#include "tests/support/Terminal.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string OK = "HTTP/1.1 200 OK\r\n";

std::string with_length(const std::string& body)
{
    return OK + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string random_bytes(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(count, ' ');
    for (char& byte : bytes)
        byte = static_cast<char>(random() & 0xFF);
    return bytes;
}

/// In chunks of lengths that cycle through some.
std::string chunked(const std::string& body, const std::vector<std::size_t>& lengths,
                    const std::string& extension = "")
{
    std::ostringstream all;
    all << std::hex;
    for (std::size_t i = 0, k = 0; i < body.size(); ++k) {
        const std::string chunk = body.substr(i, lengths[k % lengths.size()]);
        all << chunk.size() << extension << "\r\n" << chunk << "\r\n";
        i += chunk.size();
    }
    all << "0" << extension << "\r\n";
    return all.str();
}

// Web addresses.

TEST(Url, is_taken_apart)
{
    const struct {
        const char *text, *name;
        int port;
        const char *path, *field;
    } cases[] = {{"http://console", "console", 80, "", "console"},
                 {"http://console/", "console", 80, "", "console"},
                 {"http://console:8080/status", "console", 8080, "status", "console:8080"},
                 {"http://console:80/a/b?c=d&e", "console", 80, "a/b?c=d&e", "console"},
                 {"http://10.0.0.7:65535//x", "10.0.0.7", 65535, "/x", "10.0.0.7:65535"},
                 {"http://console?q=/1", "console", 80, "?q=/1", "console"},
                 {"http://console/a#part", "console", 80, "a", "console"},
                 {"http://console:1#part", "console", 1, "", "console:1"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Url url = Url::parse(c.text);
        EXPECT_EQ(c.name, url.host.name);
        EXPECT_EQ(c.port, url.host.port);
        EXPECT_EQ(c.path, url.path);
        EXPECT_EQ(c.field, url.host.field());
    }
    EXPECT_EQ(255U, Url::parse("http://" + std::string(255, 'h') + "/").host.name.size());
}

TEST(Url, is_refused_where_it_cannot_be_fetched)
{
    const std::string cases[] = {"",
                                 "console",
                                 "https://console/",
                                 "ftp://console/",
                                 "http:/console",
                                 "http://",
                                 "http:///path",
                                 "http://:80/",
                                 "http://console:/",
                                 "http://console:0/",
                                 "http://console:65536/",
                                 "http://console:-1/",
                                 "http://console:80x/",
                                 "http://console:+80/",
                                 "http://user@console/",
                                 "http://[::1]/",
                                 "http://con sole/",
                                 "http://console/a b",
                                 "http://console/a\r\nHost: other",
                                 "http://console/\x80",
                                 "http://" + std::string(256, 'h')};
    for (const std::string& text : cases)
        EXPECT_THROW(Url::parse(text), Failed) << text;
}

// Responses.

struct Taken {
    Response_head head;
    int heads = 0;
    std::string body;
    bool complete = false;
    std::string fault; ///< empty when there was none
};

/// What is taken of an answer that comes in these pieces and then ends.
Taken taken(const std::vector<std::string>& pieces)
{
    Taken all;
    Response response(
        [&all](const Response_head& head) {
            all.head = head;
            ++all.heads;
        },
        [&all](const char* data, std::size_t count) { all.body.append(data, count); });
    try {
        for (const std::string& piece : pieces)
            response.feed(piece.data(), piece.size());
        all.complete = response.is_complete();
        response.finish();
        EXPECT_TRUE(response.is_complete());
    } catch (const Failed& failed) {
        all.fault = failed.what();
    }
    return all;
}

TEST(Response, takes_a_body_of_known_length)
{
    const Taken all = taken({OK + "Content-Length: 5\r\nX: y\r\n\r\nhello and more"});
    EXPECT_EQ(200, all.head.status);
    EXPECT_EQ("OK", all.head.reason);
    EXPECT_EQ(5U, all.head.length);
    EXPECT_EQ("hello", all.body);
    EXPECT_TRUE(all.complete);
    EXPECT_EQ("", all.fault);
    EXPECT_TRUE(taken({OK + "Content-Length: 0\r\n\r\n"}).complete);
}

TEST(Response, takes_a_body_of_unknown_length_up_to_the_end)
{
    const Taken all = taken({"HTTP/1.0 200\r\n\r\nhel", "lo"});
    EXPECT_EQ("hello", all.body);
    EXPECT_EQ("", all.head.reason);
    EXPECT_FALSE(all.head.length);
    EXPECT_FALSE(all.complete);
    EXPECT_EQ("", all.fault);
}

TEST(Response, puts_chunks_together)
{
    const std::string head = OK + "Transfer-Encoding: chunked\r\n\r\n";
    for (const std::string& body : {std::string(), std::string("hello"), random_bytes(1000, 1)})
        for (const std::string extension : {"", ";name=\"value\"", " ; name"}) {
            const Taken all = taken({head + chunked(body, {1, 300, 16}, extension) + "\r\nnot of it"});
            EXPECT_EQ(body, all.body);
            EXPECT_EQ("", all.fault);
            EXPECT_TRUE(all.complete);
        }
    const Taken with_trailer = taken({head + "0005\r\nhello\r\n0\r\nChecksum: 1\r\nMore: 2\r\n\r\n"});
    EXPECT_EQ("hello", with_trailer.body);
    EXPECT_TRUE(with_trailer.complete);
    EXPECT_EQ("hello and", taken({head + "A\nhello and\t\n0\n\n"}).body.substr(0, 9));
}

TEST(Response, chunks_count_and_a_length_beside_them_does_not)
{
    const Taken all =
        taken({OK + "Content-Length: 99\r\ntransfer-encoding:\tCHUNKED \r\n\r\n5\r\nhello\r\n0\r\n\r\n"});
    EXPECT_EQ("hello", all.body);
    EXPECT_FALSE(all.head.length);
    EXPECT_TRUE(all.complete);
}

TEST(Response, knows_names_in_any_case)
{
    for (const char* name : {"Content-Length", "content-length", "CONTENT-LENGTH", "cOnTeNt-lEnGtH"})
        EXPECT_EQ("hello", taken({OK + name + ":5\r\n\r\nhello!"}).body) << name;
    for (const char* name : {"Content-Lengths", "Content_Length", "X-Content-Length", "Content"})
        EXPECT_EQ("hello!", taken({OK + name + ":5\r\n\r\nhello!"}).body) << name;
    EXPECT_EQ("/there", taken({"HTTP/1.1 301 Moved\nLOCATION:  /there \n\n"}).head.location);
}

TEST(Response, passes_over_interim_responses)
{
    const Taken all =
        taken({"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nContent-Length: 7\r\nLocation: x\r\n\r\n" +
               OK + "\r\nhello"});
    EXPECT_EQ("hello", all.body);
    EXPECT_EQ(1, all.heads);
    EXPECT_EQ(200, all.head.status);
    EXPECT_EQ("", all.head.location);
    EXPECT_FALSE(all.head.length);
}

TEST(Response, some_statuses_never_have_a_body)
{
    for (const char* status : {"204 No Content", "304 Not Modified"}) {
        const Taken all = taken({std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 5\r\n\r\nhello"});
        EXPECT_TRUE(all.complete);
        EXPECT_EQ("", all.body);
        EXPECT_EQ(1, all.heads);
    }
}

TEST(Response, says_what_is_wrong)
{
    const std::string chunks = OK + "Transfer-Encoding: chunked\r\n\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "ended before the head"},
        {"HTT", "ended before the head"},
        {OK + "Content-Length: 5\r\n", "ended before the head"},
        {"SSH-2.0-server\r\n", "no HTTP/1 response"},
        {"\r\n", "no HTTP/1 response"},
        {"HTTP/2 200 OK\r\n", "no HTTP/1 response"},
        {"HTTP/1.1 20 OK\r\n", "no HTTP/1 response"},
        {"HTTP/1.1 2000 OK\r\n", "no HTTP/1 response"},
        {"HTTP/1.1 020 OK\r\n", "no HTTP/1 response"},
        {"HTTP/1.1 2x0 OK\r\n", "no HTTP/1 response"},
        {"HTTP/1.1  200 OK\r\n", "no HTTP/1 response"},
        {"http/1.1 200 OK\r\n", "no HTTP/1 response"},
        {OK + "no field\r\n", "no header field"},
        {OK + "Content-Length : 5\r\n", "no header field"},
        {OK + "X: y\r\n folded: z\r\n", "no header field"},
        {OK + ": x\r\n", "no header field"},
        {OK + std::string("Content-Length\0: 5\r\n", 20), "no header field"},
        {OK + "Content-Length: five\r\n", "not one number"},
        {OK + "Content-Length:\r\n", "not one number"},
        {OK + "Content-Length: -5\r\n", "not one number"},
        {OK + "Content-Length: +5\r\n", "not one number"},
        {OK + "Content-Length: 5, 5\r\n", "not one number"},
        {OK + "Content-Length: 18446744073709551616\r\n", "not one number"},
        {OK + "Content-Length: 5\r\nContent-Length: 6\r\n", "not one number"},
        {OK + "Transfer-Encoding: gzip\r\n\r\n", "'gzip' is not supported"},
        {OK + "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n\r\n",
         "'gzip, chunked' is not supported"},
        {OK + "Content-Length: 5\r\n\r\nhell", "ended early, after 4 of 5 bytes"},
        {OK + "Content-Length: 18446744073709551615\r\n\r\nhell", "4 of 18446744073709551615 bytes"},
        {chunks, "ended early, after 0 bytes"},
        {chunks + "5\r\nhel", "ended early, after 3 bytes"},
        {chunks + "5\r\nhello", "ended early, after 5 bytes"},
        {chunks + "5\r\nhello\r\n", "ended early, after 5 bytes"},
        {chunks + "5\r\nhello\r\n0\r\n", "ended early, after 5 bytes"},
        {chunks + "5\r\nhello\r\n0\r\nTrailer: x\r\n", "ended early, after 5 bytes"},
        {chunks + "5\r\nhello!\r\n", "longer than its length"},
        {chunks + "\r\n", "has no length"},
        {chunks + "x\r\n", "has no length"},
        {chunks + "0x5\r\n", "has no length"},
        {chunks + "-1\r\n", "has no length"},
        {chunks + "10000000000000000\r\n", "has no length"}};
    for (const auto& [answer, fault] : cases)
        EXPECT_THAT(taken({answer}).fault, HasSubstr(fault)) << answer;
    EXPECT_EQ("hello", taken({OK + "Content-Length: 5\r\nContent-Length: 5\r\n\r\nhello"}).body);
}

TEST(Response, bounds_what_it_keeps)
{
    const auto fault_of_field = [](std::size_t length) {
        const std::string field = "X: " + std::string(length - 5, 'x') + "\r\n";
        return taken({OK + field + "\r\nhello"}).fault;
    };
    const std::size_t longest = Response::LONGEST_HEAD - OK.size() - 2;
    EXPECT_EQ("", fault_of_field(longest));
    EXPECT_THAT(fault_of_field(longest + 1), HasSubstr("longer than 16384 bytes"));

    const std::string endless(Response::LONGEST_HEAD + 1, 'x');
    const std::string chunks = OK + "Transfer-Encoding: chunked\r\n\r\n";
    std::string interim;
    while (interim.size() <= Response::LONGEST_HEAD)
        interim += "HTTP/1.1 100 Continue\r\n\r\n";
    for (const std::string& answer :
         {endless, interim, chunks + "5;" + endless, chunks + "0\r\nX: " + endless})
        EXPECT_THAT(taken({answer}).fault, HasSubstr("longer than 16384 bytes"));

    const std::string body = random_bytes(50000, 2); // lines in plenty, yet few between two chunks
    EXPECT_EQ(body, taken({chunks + chunked(body, {1}) + "\r\n"}).body);
}

TEST(Response, is_the_same_wherever_the_pieces_are_cut)
{
    const std::string answers[] = {
        with_length("hello"), OK + "\r\nhello",
        "HTTP/1.1 100 Continue\r\n\r\n" + OK +
            "Transfer-Encoding: chunked\r\n\r\n2\r\nhe\r\n3;x\r\nllo\r\n0\r\nT: x\r\n\r\n"};
    for (const std::string& answer : answers)
        for (std::size_t first = 0; first <= answer.size(); ++first)
            for (std::size_t second = first; second <= answer.size(); ++second) {
                const Taken all = taken(
                    {answer.substr(0, first), answer.substr(first, second - first), answer.substr(second)});
                ASSERT_EQ("hello", all.body) << "cut at " << first << " and " << second;
                ASSERT_EQ("", all.fault);
                ASSERT_EQ(1, all.heads);
            }
}

TEST(Response, gives_back_random_bodies_in_every_framing)
{
    const std::uint32_t seed = 9112;
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    for (int round = 0; round < 10000; ++round) {
        const std::string body = random_bytes(below(200), static_cast<unsigned>(round));
        const std::size_t framing = below(3);
        const bool ends_itself = framing != 0;
        std::string answer = OK + "Date: today\r\n";
        if (framing == 0)
            answer += "\r\n" + body;
        else if (framing == 1)
            answer += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        else
            answer +=
                "Transfer-Encoding: chunked\r\n\r\n" + chunked(body, {1 + below(40), 1 + below(5)}) + "\r\n";
        const bool is_cut = ends_itself && below(4) == 0;
        if (is_cut)
            answer.resize(below(answer.size()));
        std::vector<std::string> pieces;
        for (std::size_t i = 0; i < answer.size(); i += pieces.back().size())
            pieces.push_back(answer.substr(i, 1 + below(80)));
        const Taken all = taken(pieces);
        ASSERT_EQ(is_cut, !all.fault.empty()) << "seed " << seed << ", round " << round;
        ASSERT_EQ(ends_itself && !is_cut, all.complete) << "seed " << seed << ", round " << round;
        ASSERT_EQ(is_cut ? body.substr(0, all.body.size()) : body, all.body)
            << "seed " << seed << ", round " << round;
    }
}

// The program.

/// Answers each connection as a test has it, on a thread of its own.
class Server {
public:
    using Answer = std::function<void(int fd)>;

    explicit Server(Answer connection_answer)
        : answer(std::move(connection_answer)), listening(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(0, bind(listening, generic, length));
        EXPECT_EQ(0, listen(listening, 5));
        EXPECT_EQ(0, getsockname(listening, generic, &length));
        port_number = ntohs(address.sin_port);
        thread = std::thread([this] { serve(); });
    }
    explicit Server(const std::string& text) : Server([text](int fd) { send(fd, text); }) {}
    ~Server()
    {
        shutdown(listening, SHUT_RDWR); // wakes accept
        thread.join();
        close(listening);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::string host() const { return "127.0.0.1:" + std::to_string(port_number); }
    std::string url(const std::string& path = "file") const { return "http://" + host() + "/" + path; }

    /// The head of the latest one.
    std::string request() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return latest_request;
    }

    /// As far as the other side listens.
    static bool send(int fd, const std::string& text)
    {
        std::size_t sent = 0;
        while (sent < text.size()) {
            const ssize_t count = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }

private:
    void serve()
    {
        for (;;) {
            const int fd = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                return;
            std::string head;
            std::array<char, 1000> block{};
            while (head.find("\r\n\r\n") == std::string::npos) {
                const ssize_t count = recv(fd, block.data(), block.size(), 0);
                if (count <= 0)
                    break;
                head.append(block.data(), static_cast<std::size_t>(count));
            }
            {
                const std::lock_guard<std::mutex> lock(mutex);
                latest_request = head;
            }
            answer(fd);
            close(fd);
        }
    }

    Answer answer;
    int listening;
    int port_number = 0;
    mutable std::mutex mutex;
    std::string latest_request;
    std::thread thread;
};

void break_connection(int fd)
{
    const linger at_once{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once); // the close that follows resets
}

/// Runs the program in a folder of its own, under the emulator where there is one.
class Http_get : public testing::Test {
protected:
    Http_get()
    {
        for (const char* variable : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
            unsetenv(variable); // of curl's
    }

    std::string path(const std::string& name) const { return folder.path(name); }
    std::string content(const std::string& name) const { return folder.content(name); }

    Outcome get(const std::vector<std::string>& arguments, int out = -1, int err = -1,
                rlim_t largest_file = RLIM_INFINITY) const
    {
        const Surroundings surroundings{-1, out, err, folder.path(), {}, largest_file};
        return Child_process(HTTP_GET_EMULATOR, HTTP_GET, arguments, surroundings).finish();
    }

    /// Runs another program; status 127 where it is missing.
    static Outcome run(const std::string& program, const std::vector<std::string>& arguments)
    {
        return Child_process("", program, arguments).finish();
    }

    std::vector<std::string> files() const { return folder.entries(); }

    void expect_failure(const std::string& answer, const std::string& message) const
    {
        SCOPED_TRACE(answer.substr(0, 200));
        const Server server(answer);
        std::ofstream(path("kept")) << "old";
        const Outcome outcome = get({server.url(), "-o", "kept"});
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err, EndsWith("http_get: " + message + "\n"));
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ("old", content("kept"));
        EXPECT_EQ(std::vector<std::string>{"kept"}, files());
    }

    const Temporary_folder folder;
};

TEST_F(Http_get, writes_the_body_to_standard_output)
{
    const std::string body = random_bytes(100000, 3);
    const Server server(with_length(body));
    const Outcome outcome = get({server.url()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(body, outcome.out);
    EXPECT_EQ("TCP_client: Connected to " + server.host() + "\n",
              outcome.err); // the library's, and no progress
}

TEST_F(Http_get, writes_the_body_to_a_file)
{
    const std::string body = random_bytes(2000000, 4);
    for (const std::string& answer :
         {with_length(body), OK + "\r\n" + body,
          OK + "Transfer-Encoding: chunked\r\n\r\n" + chunked(body, {65536, 1, 300000, 4095}) + "\r\n"}) {
        const Server server(answer);
        const Outcome outcome = get({"-o", "file", server.url()});
        EXPECT_EQ(0, outcome.status) << outcome.err;
        EXPECT_EQ("", outcome.out);
        EXPECT_TRUE(body == content("file"));
        EXPECT_EQ(std::vector<std::string>{"file"}, files());
    }
}

TEST_F(Http_get, asks_a_server_for_the_path_and_a_proxy_for_the_whole_url)
{
    const Server server(with_length("hello"));
    const std::string rest = "User-Agent: http_get\r\nAccept: */*\r\nConnection: close\r\n\r\n";
    EXPECT_EQ("hello", get({server.url("a/b?c=%20#d")}).out);
    EXPECT_EQ("GET /a/b?c=%20 HTTP/1.1\r\nHost: " + server.host() + "\r\n" + rest, server.request());
    EXPECT_EQ("hello", get({server.url("")}).out);
    EXPECT_THAT(server.request(), StartsWith("GET / HTTP/1.1\r\n"));
    EXPECT_EQ("hello", get({"http://nowhere.invalid/a/b", "--proxy", server.host()}).out);
    EXPECT_EQ("GET http://nowhere.invalid:80/a/b HTTP/1.1\r\nHost: nowhere.invalid\r\n" + rest,
              server.request());
}

TEST_F(Http_get, looks_names_up)
{
    const Server server(with_length("hello"));
    const Outcome outcome = get({"http://localhost" + server.host().substr(9) + "/"});
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("hello", outcome.out);
}

TEST_F(Http_get, does_not_wait_for_a_server_that_keeps_the_connection)
{
    const Server server([](int fd) {
        Server::send(fd, with_length("hello"));
        char more = 0;
        EXPECT_EQ(0, recv(fd, &more, 1, 0)); // the client is the one to close
    });
    EXPECT_EQ("hello", get({server.url()}).out);
}

TEST_F(Http_get, tells_what_the_server_answers_when_it_is_not_the_file)
{
    const std::pair<const char*, const char*> cases[] = {
        {"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnope", "404 Not Found."},
        {"HTTP/1.1 500\r\n\r\n", "500."},
        {"HTTP/1.1 204 No Content\r\n\r\n", "204 No Content."},
        {"HTTP/1.1 206 Partial Content\r\nContent-Length: 1\r\n\r\nx", "206 Partial Content."},
        {"HTTP/1.1 302 Found\r\nLocation: http://other/\r\n\r\n", "302 Found, see http://other/."}};
    for (const auto& [answer, message] : cases)
        expect_failure(answer, std::string("the server answers ") + message);
}

TEST_F(Http_get, leaves_nothing_behind_of_an_answer_that_is_not_whole)
{
    expect_failure(OK + "Content-Length: 100000\r\n\r\n" + random_bytes(99999, 5),
                   "the connection ended early, after 99999 of 100000 bytes.");
    expect_failure(OK + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
                   "the connection ended early, after 5 bytes.");
    expect_failure(OK + "Transfer-Encoding: gzip\r\n\r\nxxx",
                   "the answer's transfer coding 'gzip' is not supported.");
    expect_failure(OK + "X: " + std::string(20000, 'x') + "\r\n\r\n",
                   "the head of the answer is longer than 16384 bytes.");
    expect_failure("", "the connection ended before the head of the answer did.");
    expect_failure("220 mail ready\r\n", "the answer is no HTTP/1 response.");
}

TEST_F(Http_get, a_short_body_on_standard_output_is_told_by_the_status)
{
    const Server server(OK + "Content-Length: 6\r\n\r\nhello");
    const Outcome outcome = get({server.url()});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("hello", outcome.out);
    EXPECT_THAT(outcome.err, EndsWith("http_get: the connection ended early, after 5 of 6 bytes.\n"));
}

TEST_F(Http_get, a_broken_connection_is_no_end)
{
    const Server server([](int fd) {
        Server::send(fd, OK + "\r\nhello");
        break_connection(fd);
    });
    const Outcome outcome = get({server.url(), "-o", "file"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(outcome.err, HasSubstr("http_get: the connection broke: Connection reset by peer.\n"));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Http_get, says_when_there_is_no_connection)
{
    const Outcome unknown = get({"http://nowhere.invalid/"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_THAT(unknown.err, StartsWith("TCP_client getaddrinfo 'nowhere.invalid' lookup failed: "));
    EXPECT_THAT(unknown.err, EndsWith("http_get: no connection to nowhere.invalid:80.\n"));

    const Reserved_port nobody;
    const std::string host = "127.0.0.1:" + std::to_string(nobody.number());
    const Outcome refused = get({"http://" + host + "/"});
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ("TCP_client: Could not connect to " + host + "\nhttp_get: no connection to " + host + ".\n",
              refused.err);
}

TEST_F(Http_get, refuses_what_it_cannot_fetch_without_a_connection)
{
    const std::pair<std::string, const char*> cases[] = {
        {"https://console/", "'https://console/' does not start with http://."},
        {"http://console:99999/", "'99999' is no port."},
        {"http://console/a b", "the URL holds a blank or another character that has to be written as %XX."},
        {"http://console/" + std::string(5000, 'x'), "the URL is too long."}};
    for (const auto& [url, message] : cases) {
        const Outcome outcome = get({url});
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ(std::string("http_get: ") + message + "\n", outcome.err);
    }
}

TEST_F(Http_get, ends_with_status_2_on_a_wrong_command_line)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "it takes a URL."},
        {{""}, "it takes one URL."},
        {{"http://a/", "http://b/"}, "it takes one URL."},
        {{"http://a/", "-o"}, "-o takes a value."},
        {{"http://a/", "-o", ""}, "-o takes a value."},
        {{"--proxy"}, "--proxy takes a value."},
        {{"-x", "http://a/"}, "there is no option '-x'."}};
    for (const auto& [arguments, message] : cases) {
        const Outcome outcome = get(arguments);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ(std::string("http_get: ") + message + " See http_get --help.\n", outcome.err);
    }
    const Outcome help = get({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.out, StartsWith("usage: http_get URL"));
}

TEST_F(Http_get, says_when_the_file_cannot_be_written)
{
    const Server server(with_length(random_bytes(100000, 6)));
    const std::string in_vain = "http_get: 'missing/file' cannot be opened: No such file or directory.\n";
    EXPECT_THAT(get({server.url(), "-o", "missing/file"}).err, EndsWith(in_vain));

    // One file is too large for the system at once, the other when its buffer is emptied at the end.
    for (const std::size_t size : {100000U, 3000U}) {
        const Server other(with_length(random_bytes(size, 6)));
        const Outcome cut = get({other.url(), "-o", "file"}, -1, -1, 1024);
        EXPECT_EQ(1, cut.status);
        EXPECT_THAT(cut.err, EndsWith("http_get: 'file' cannot be written: File too large.\n"));
        EXPECT_THAT(files(), IsEmpty());
    }

    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    for (const bool is_help : {false, true}) {
        const Outcome outcome = get({is_help ? "--help" : server.url()}, full);
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err,
                    EndsWith("http_get: standard output cannot be written: No space left on device.\n"));
    }
    close(full);

    std::array<int, 2> ends{};
    ASSERT_EQ(0, pipe2(ends.data(), O_CLOEXEC));
    close(ends[0]);
    EXPECT_THAT(get({server.url()}, ends[1]).err, EndsWith("cannot be written: Broken pipe.\n"));
    close(ends[1]);
}

TEST_F(Http_get, replaces_files_behind_links_and_no_devices)
{
    const Server server(with_length("hello"));
    std::ofstream(path("old")) << "what was there";
    std::filesystem::create_symlink("old", path("link"));
    EXPECT_EQ(0, get({server.url(), "-o", "link"}).status);
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
    EXPECT_EQ("hello", content("old"));

    ASSERT_EQ(0, mkfifo(path("fifo").c_str(), 0600));
    const int fifo = open(path("fifo").c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    EXPECT_EQ(0, get({server.url(), "-o", "fifo"}).status);
    EXPECT_TRUE(std::filesystem::is_fifo(path("fifo")));
    std::array<char, 10> read_back{};
    EXPECT_EQ(5, read(fifo, read_back.data(), read_back.size()));
    close(fifo);
    EXPECT_EQ((std::vector<std::string>{"fifo", "link", "old"}), files());
}

/// Some tenths of a body of 2 MB, each in five pieces with a pause behind each.
void send_slowly(int fd, const std::string& head, int tenths)
{
    Server::send(fd, head);
    for (int i = 0; i < 5 * tenths && Server::send(fd, std::string(40000, 'x')); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(75));
}

TEST_F(Http_get, draws_a_bar_and_the_time_that_is_left_on_a_terminal)
{
    const Server server([](int fd) { send_slowly(fd, OK + "Content-Length: 2000000\r\n\r\n", 10); });
    const Terminal terminal;
    const auto start_time = std::chrono::steady_clock::now();
    EXPECT_EQ(0, get({server.url(), "-o", "file"}, -1, terminal.fd).status);
    const auto taken_time = std::chrono::steady_clock::now() - start_time;
    const std::string shown = terminal.shown();
    EXPECT_THAT(shown, testing::ContainsRegex("\r2\\.0 MB in 0:[0-9][0-9]\x1b\\[K\n$"));
    const std::regex drawing(R"(\r\[(#*)(\.*)\] (\d+) %  (\d\.\d) of 2\.0 MB(, 0:\d\d left)?\x1b\[K)");
    int bars = 0;
    int times = 0;
    for (std::sregex_iterator bar(shown.begin(), shown.end(), drawing); bar != std::sregex_iterator();
         ++bar) {
        const int percent = std::stoi((*bar)[3]);
        EXPECT_EQ(percent / 5, (*bar)[1].length()) << bar->str();
        EXPECT_EQ(20, (*bar)[1].length() + (*bar)[2].length()) << bar->str();
        EXPECT_NEAR(percent / 50.0, std::stod((*bar)[4]), 0.08) << bar->str();
        ++bars;
        times += (*bar)[5].matched ? 1 : 0;
    }
    EXPECT_GE(bars, 4);
    EXPECT_LE(bars, taken_time / std::chrono::milliseconds(200)); // not with every piece
    EXPECT_GE(times, 2);
}

TEST_F(Http_get, draws_what_is_there_where_the_length_is_not_known)
{
    const Server server([](int fd) { send_slowly(fd, OK + "\r\n", 3); });
    const Terminal terminal;
    EXPECT_EQ(0, get({server.url(), "-o", "file"}, -1, terminal.fd).status);
    const std::string shown = terminal.shown();
    EXPECT_THAT(shown, testing::ContainsRegex("\r0\\.[0-6] MB\x1b\\[K"));
    EXPECT_THAT(shown, testing::ContainsRegex("\r0\\.6 MB in 0:[0-9][0-9]\x1b\\[K\n$"));
}

TEST_F(Http_get, draws_nothing_where_standard_error_is_no_terminal)
{
    const Server server([](int fd) { send_slowly(fd, OK + "\r\n", 3); });
    EXPECT_EQ("TCP_client: Connected to " + server.host() + "\n", get({server.url()}).err);
}

TEST_F(Http_get, wipes_the_bar_before_it_says_what_went_wrong)
{
    const Server server([](int fd) { send_slowly(fd, OK + "Content-Length: 2000000\r\n\r\n", 3); });
    const Terminal terminal;
    EXPECT_EQ(1, get({server.url(), "-o", "file"}, -1, terminal.fd).status);
    EXPECT_THAT(
        terminal.shown(),
        testing::ContainsRegex("MB\x1b\\[K\r\x1b\\[Khttp_get: the connection ended early, after 600000"));
}

TEST_F(Http_get, gets_the_same_as_curl)
{
    if (run("curl", {"--version"}).status != 0)
        GTEST_SKIP() << "there is no curl";
    const std::string body = random_bytes(300000, 7);
    for (const std::string& answer :
         {with_length(body), "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + OK + "\r\n" + body,
          OK + "Transfer-Encoding: chunked\r\n\r\n" + chunked(body, {3, 70000}, ";x=y") + "T: z\r\n\r\n",
          OK + "Content-Length: 300001\r\n\r\n" + body, std::string("HTTP/1.1 404 Gone\r\n\r\n")}) {
        const Server server(answer);
        const Outcome theirs = run("curl", {"--silent", "--fail", server.url()});
        const Outcome ours = get({server.url()});
        EXPECT_EQ(theirs.status == 0, ours.status == 0);
        EXPECT_TRUE(theirs.out == ours.out);
    }
}

TEST_F(Http_get, gets_files_from_an_ordinary_server)
{
    const std::string body = random_bytes(3000000, 8);
    folder.file("a file", body);
    Child_process server("", "python3", {"-u", "-m", "http.server", "0", "--bind", "127.0.0.1"},
                         {-1, -1, -1, folder.path()});
    const std::string line = server.line(); // "Serving HTTP on 127.0.0.1 port N ..."
    const std::size_t at = line.find("port ");
    if (at == std::string::npos)
        GTEST_SKIP() << "there is no python3 with http.server";
    const std::string root = "http://127.0.0.1:" + std::to_string(std::stoi(line.substr(at + 5))) + "/";
    EXPECT_EQ(0, get({root + "a%20file", "-o", "copy"}).status);
    EXPECT_TRUE(body == content("copy"));
    const Outcome missing = get({root + "missing"});
    EXPECT_EQ(1, missing.status);
    EXPECT_THAT(missing.err, HasSubstr("the server answers 404 File not found."));
    const Outcome theirs = run("curl", {"--silent", root + "copy"});
    if (theirs.status == 0) {
        EXPECT_TRUE(theirs.out == get({root + "copy"}).out);
    }
}

} // namespace
