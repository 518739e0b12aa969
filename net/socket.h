// A socket: the system's calls (socket(7)) with addresses as SocketAddress and every failure as an exception.
//
// Being a StreamFileBase it is read, written, duplicated and closed as a file. Nothing is retried: EAGAIN and EINTR are
// failures like any others, so a non-blocking socket is used only after poll(2) has reported it ready.
//
// Every operation but Open() throws StreamFileBaseError "StreamFileBase: file is closed" first of all when there is no
// descriptor. A failure of the system is an ErrnoError, its text given with the operation.
//
// The first socket has the poll loop drop SIGPIPE, so writing to a peer that has gone is an error (EPIPE) and not the
// end of the program. Child programs keep the default.
//
// On the thread of the poll loop.

#pragma once

#include <sys/socket.h>

#include <string>

#include "net/socketaddress.h"
#include "runtime/errnoexcept.h"
#include "runtime/streamfilebase.h"

// An alarm broke the connect; the text is that of the broken connect, with ": timed out" behind it.
class SocketConnectionTimedOut : public SocketError {
 public:
  using SocketError::SocketError;
};

class Socket : public StreamFileBase {
 public:
  // The system's own values throughout.
  using Family = SocketFamily;
  using enum SocketFamily;
  enum Type : int { TypeStream = SOCK_STREAM, TypeDatagram = SOCK_DGRAM, TypeRaw = SOCK_RAW };
  enum HowTo : int { ShutdownRead = SHUT_RD, ShutdownWrite = SHUT_WR, ShutdownBoth = SHUT_RDWR };
  // Any flags of send(2) and recv(2) may be cast to it; these are the ones that have a name.
  enum MsgFlags : int {
    MsgNone = 0,
    MsgOutOfBand = MSG_OOB,
    MsgPeek = MSG_PEEK,
    MsgTruncated = MSG_TRUNC,
    MsgDontWait = MSG_DONTWAIT,
    MsgWaitAll = MSG_WAITALL
  };

  // The peer went away between its connect and the Accept().
  class EConnAborted : public ErrnoError {
   public:
    using ErrnoError::ErrnoError;
  };

  Socket() = default;
  explicit Socket(int fileno);  // takes over the descriptor; a negative one is a StreamFileBaseError
  Socket(const Socket& other) = default;
  Socket& operator=(const Socket& other) = default;
  Socket(Family family, Type type, int protocol);  // as Open()

  // Closes what is held, creates a socket and sets SO_REUSEADDR on it, whatever its kind.
  // "Socket: unable to create socket"
  void Open(Family family, Type type, int protocol);

  // As StreamFileBase::_close(), but a closed socket is an error.
  void Close();

  // "Socket: error shutting down socket"
  void Shutdown(HowTo how);

  // On a non-blocking socket it may return before the connection stands (EINPROGRESS): CheckConnect() tells how it
  // went, once the descriptor is writable.
  // "Socket: unable to connect to " and the address
  void Connect(const SocketAddress& address);

  // "Socket: unable to connect" with the error of the connection, or "Socket: unable to query connection status."
  void CheckConnect();

  // Gives up after `seconds`, 1 or more, with SocketConnectionTimedOut. Uses alarm(2), hence one such connect at a time
  // in the process, and no other use of SIGALRM. Without effect on a non-blocking socket, whose connect returns at
  // once.
  void Connect(const SocketAddress& address, int seconds);

  // With a file mode mask of 0 meanwhile: everybody may connect to the file of a Unix-domain socket.
  // "Socket: unable to bind to " and the address
  void Bind(const SocketAddress& address);

  // Makes the socket non-blocking as well.
  // "Socket: unable to listen"
  void Listen(int backlog);

  // With nullptr for an address that isn't wanted; then the two below do nothing.
  // EConnAborted "Socket: client aborted connection", or "Socket: accept error"
  Socket Accept(SocketAddress* peer);
  // "Socket: getsockname error" and "Socket: getpeername error"
  void GetSockName(SocketAddress* address);
  void GetPeerName(SocketAddress* address);

  // They return the count of bytes that went or came, 0 from the receivers at the end of the stream.
  // "Socket: error in " and the name of the operation
  unsigned int Send(const void* data, unsigned int size, MsgFlags flags);
  unsigned int SendTo(const SocketAddress& address, const void* data, unsigned int size, MsgFlags flags);
  unsigned int SendMsg(const msghdr* message, MsgFlags flags);
  unsigned int RecvMsg(msghdr* message, MsgFlags flags);
  unsigned int Recv(void* data, unsigned int size, MsgFlags flags);
  // The address may be nullptr. It stays as it was when the system tells none, as on a connected stream.
  unsigned int RecvFrom(SocketAddress* address, void* data, unsigned int size, MsgFlags flags);
};
