// Listening TCP sockets.
#include "TcpServer.h"

#include "TcpSocket.h"
#include "TcpStream.h"

namespace Murn {

TcpServer::TcpServer(Socket::Family family) : Socket(family, Socket::Stream) {}

TcpServer::~TcpServer() = default;

bool TcpServer::listen()
{
    return Socket::listen();
}

TcpSocket* TcpServer::accept()
{
    return Socket::accept();
}

TcpStream* TcpServer::acceptStream()
{
    const int fd = acceptFd();
    return fd == -1 ? nullptr : new TcpStream(fd);
}

void TcpServer::setSendBufferSize(int bytes)
{
    Socket::setSendBufferSize(bytes);
}

void TcpServer::setReceiveBufferSize(int bytes)
{
    Socket::setReceiveBufferSize(bytes);
}

}  // namespace Murn
