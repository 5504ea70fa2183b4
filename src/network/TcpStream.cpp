// TCP connections as streams.
#include "TcpStream.h"

#include <glib.h>

#include "Stream_glib.h"

namespace Murn {

namespace {

void giveChannel(Stream* stream, int fd)
{
    GIOChannel* const channel = g_io_channel_unix_new(fd);
    Stream_setChannel(stream, channel);
    g_io_channel_unref(channel);
}

}  // namespace

TcpStream::TcpStream(int fd) : _tcpSocket(fd)
{
    giveChannel(this, fd);
}

TcpStream::TcpStream(Socket::Family family) : _tcpSocket(family) {}

TcpStream::~TcpStream()
{
    Stream::close();
}

bool TcpStream::connect(const HostAddress& address, unsigned short port)
{
    if (!_tcpSocket.connect(address, port))
        return false;
    giveChannel(this, _tcpSocket._socket);
    return true;
}

bool TcpStream::connect(const HostAddress& address, unsigned short port, long timeoutMs)
{
    if (!_tcpSocket.connect(address, port, timeoutMs))
        return false;
    giveChannel(this, _tcpSocket._socket);
    return true;
}

HostAddress TcpStream::remoteAddress() const
{
    return _tcpSocket.remoteAddress();
}

unsigned short TcpStream::remotePort() const
{
    return _tcpSocket.remotePort();
}

void TcpStream::setSendBufferSize(int size)
{
    _tcpSocket.setSendBufferSize(size);
}

void TcpStream::setReceiveBufferSize(int size)
{
    _tcpSocket.setReceiveBufferSize(size);
}

int TcpStream::getSendBufferSize() const
{
    return _tcpSocket.getSendBufferSize();
}

int TcpStream::getReceiveBufferSize() const
{
    return _tcpSocket.getReceiveBufferSize();
}

void TcpStream::setLowDelay(bool on)
{
    _tcpSocket.setLowDelay(on);
}

}  // namespace Murn
