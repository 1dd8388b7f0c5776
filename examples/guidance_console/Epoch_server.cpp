#include "Epoch_server.h"

#include <stdexcept>

Epoch_server::Epoch_server(int wanted) : TCP_server_buffered(wanted)
{
    loop = std::thread([this] { run_blocking(); });
    if (port >= 0)
        return;
    loop.join(); // with nothing to serve it ends by itself
    throw std::runtime_error("Port " + std::to_string(wanted) +
                             " cannot be served: give another one, or 0 for any, after --serve.");
}

Epoch_server::~Epoch_server()
{
    wait_quit();
    loop.join();
}

void Epoch_server::send(const std::string& line)
{
    const std::string whole = line + '\n';
    const auto length = static_cast<std::int64_t>(whole.size()); // the same type on every machine
    write_to_all_connections(reinterpret_cast<const unsigned char*>(whole.data()),
                             static_cast<unsigned>(length));
}

void Epoch_server::handle_data(int /*sd*/, unsigned char* /*data*/, int /*len*/)
{
    // Viewers have nothing to say here.
}
