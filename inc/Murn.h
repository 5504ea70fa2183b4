// Everything that the library offers, in one include.
#ifndef MURN_MURN_H
#define MURN_MURN_H

#include "Application.h"
#include "AsyncTcpServer.h"
#include "Check.h"
#include "Cond.h"
#include "DeleteLaterEvent.h"
#include "Event.h"
#include "EventQueue.h"
#include "Export.h"
#include "HostAddress.h"
#include "IStream.h"
#include "IStreamReadHandler.h"
#include "LogHandler.h"
#include "Logger.h"
#include "Murn_c.h"
#include "Mutex.h"
#include "MutexLocker.h"
#include "NetworkInterface.h"
#include "NetworkInterfaceInfo.h"
#include "Object.h"
#include "Socket.h"
#include "Stream.h"
#include "TcpServer.h"
#include "TcpSocket.h"
#include "TcpStream.h"
#include "Thread.h"
#include "Timer.h"
#include "UdpSocket.h"

#endif
