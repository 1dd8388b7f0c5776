// Fetches a file over HTTP/1.1: connects, writes the request, takes the answer apart, and says meanwhile how
// long it still takes. Read this file first, then Response.h.

#include "Failed.h"
#include "Fields.h"
#include "Output.h"
#include "Progress.h"
#include "Response.h"
#include "Url.h"

#include "util/net/TCP_client.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char* USAGE =
    R"(usage: http_get URL [-o FILE] [--proxy HOST:PORT]

Fetches http://HOST[:PORT][/PATH] and writes it to standard output.

  -o FILE            write it to FILE instead, once it is there as a whole
  --proxy HOST:PORT  ask that proxy
  --help             this text

The status is 0 when all of it was fetched and written, 1 when not, and 2 when the command line is wrong.
)";

struct Options {
    bool help = false;
    std::string url;
    std::string file;
    std::string proxy;
};

struct Wrong_usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void complain(const std::string& message)
{
    static_cast<void>(std::fprintf(stderr, "http_get: %s\n", message.c_str())); // nowhere left to say so
}

Options read_options(int argc, char** argv)
{
    Options options;
    const auto value_of = [&](int& i) -> std::string {
        if (i + 1 >= argc || *argv[i + 1] == '\0')
            throw Wrong_usage(std::string(argv[i]) + " takes a value.");
        return argv[++i];
    };
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--help")
            options.help = true;
        else if (word == "-o")
            options.file = value_of(i);
        else if (word == "--proxy")
            options.proxy = value_of(i);
        else if (!word.empty() && word.front() == '-')
            throw Wrong_usage("there is no option '" + std::string(word) + "'.");
        else if (word.empty() || !options.url.empty())
            throw Wrong_usage("it takes one URL.");
        else
            options.url = word;
    }
    if (options.url.empty() && !options.help)
        throw Wrong_usage("it takes a URL.");
    return options;
}

/// A server is asked for the path alone; a proxy has to be told of which host.
std::string request(const Url& url, bool by_proxy)
{
    std::array<char, 4096> buffer{};
    Header_helper head = Fields::helper();
    head.set_buf(buffer.data(), static_cast<int>(buffer.size()));
    head.add_http_start("GET", url.path.c_str(), by_proxy ? url.host.name.c_str() : nullptr, url.host.port);
    head.add_header(Fields::HOST, url.host.field().c_str());
    head.add_header(Fields::USER_AGENT, "http_get");
    head.add_header(Fields::ACCEPT, "*/*");
    head.add_header(Fields::CONNECTION, "close");
    head.add_http_finish();
    if (head.overflowed)
        throw Failed("the URL is too long.");
    return {buffer.data(), static_cast<std::size_t>(head.index)};
}

void send(TCP_client& connection, std::string_view text)
{
    while (!text.empty()) {
        const unsigned long long length = text.size();
        const int count = connection.write(reinterpret_cast<const unsigned char*>(text.data()),
                                           static_cast<unsigned>(length));
        if (count < 0 && errno != EINTR)
            throw Failed(std::string("the request cannot be sent: ") + std::strerror(errno) + ".");
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void receive(TCP_client& connection, Response& response)
{
    std::array<unsigned char, 65536> block{};
    while (!response.is_complete()) {
        const int count = connection.read(block.data(), block.size());
        if (count < 0 && errno != EINTR)
            throw Failed(std::string("the connection broke: ") + std::strerror(errno) + ".");
        if (count == 0)
            response.finish();
        if (count > 0)
            response.feed(reinterpret_cast<const char*>(block.data()), static_cast<std::size_t>(count));
    }
}

void require_success(const Response_head& head)
{
    if (head.status != 200)
        throw Failed("the server answers " + std::to_string(head.status) +
                     (head.reason.empty() ? "" : " " + head.reason) +
                     (head.location.empty() ? "" : ", see " + head.location) + ".");
}

void fetch(const Options& options)
{
    const Url url = Url::parse(options.url);
    const Host peer = options.proxy.empty() ? url.host : Host::parse(options.proxy);
    const std::string asked = request(url, !options.proxy.empty());
    TCP_client connection(peer.name.c_str(), peer.port);
    if (!connection.open())
        throw Failed("no connection to " + peer.name + ":" + std::to_string(peer.port) + ".");
    send(connection, asked);

    std::optional<Output> output;
    Progress progress;
    Response response(
        [&](const Response_head& head) {
            require_success(head);
            output.emplace(options.file);
            progress.start(head.length);
        },
        [&](const char* data, std::size_t count) {
            output->write(data, count);
            progress.add(count);
        });
    receive(connection, response);
    output->finish();
    progress.finish();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = read_options(argc, argv);
        if (options.help) {
            Output output("");
            output.write(USAGE, std::strlen(USAGE));
            output.finish();
            return 0;
        }
        static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // what is broken is told by the write; cannot fail
        fetch(options);
        return 0;
    } catch (const Wrong_usage& wrong) {
        complain(wrong.what() + std::string(" See http_get --help."));
        return 2;
    } catch (const std::exception& error) {
        complain(error.what());
        return 1;
    }
}
