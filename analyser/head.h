// The TCP link that the logger keeps to an instrument on the network.
//
// It finds the peer by DNS-SD (RFC 6763) or by its address, connects without blocking, tries again every 2 s for ever,
// cuts what comes in into lines or counted blocks, and queues what goes out. What the lines mean is not its business.
//
// A Head is a handle: copies share one link, which ends without a word when the last of them goes.
//
// Thread: the poll loop's. A host name is looked up by the system's resolver, which blocks; an address is not.
//
// Time: 2 s from a closed socket or a failed attempt to the next attempt. 5 s after the start of a connect, and then
// every 15 s, the link looks whether bytes have come, and stops looking at the first time that there were none. Nothing
// follows from it: silence never breaks a link, only an error, a hang-up or the end of the stream does. That is meant.
//
// What was queued or is an incomplete line when a socket closes stays, and goes out or is joined to the input on the
// next connection, to whatever target. That is meant too.
//
// The queue has no limit, and neither has the length of a line.
//
// Errors: no failure of the network or of a look-up is thrown. Neither is what a listener throws, from whatever call:
// it is told and ends the connection. Out of HeadClosed it is told and changes nothing more, as the connection has
// ended; out of HeadOpened it makes the attempt a failed one, and is told as such. Messages go to standard output and
// are flushed; those on progress, failed attempts among them, come only when `verbose` is set.

#pragma once

#include <memory>
#include <string>

class BonjourResolver;

class Head {
 public:
  // Any of these may call everything here, and may let go of the last handle, so that no more calls come. The link
  // looks after each call whether its socket is still the same: lines that stand behind one whose call closed it wait
  // in the buffer for the next connection. Closing in HeadGotRaw holds nothing back: what came is still cut, or an
  // owner that takes its replies raw and closes behind each would gather them for ever.
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void HeadOpened();  // a connect has begun on a fresh socket
    // An open socket has been closed, whatever the reason; each one that was opened gets this once, but for one
    // whose HeadOpened threw. When it was closed by Connect or Disconnect, what is begun here is ended again.
    virtual void HeadClosed();
    virtual void HeadConnected(std::string connectedTo);  // the target
    virtual void HeadGotLine(std::string line);           // with its line feed
    virtual void HeadGotBLOB(std::string blob);           // as long as expected
    virtual void HeadGotRaw(std::string data);            // the bytes of one read, before they are cut
  };

  // The link to an analyser: type "_tarno-tn5500._tcp", port 5500.
  //
  // `listener`: not owned, outlives the link; nullptr is a std::runtime_error. All constructors but the last start to
  // browse at once; none connects.
  Head(Listener* listener, bool verbose);
  // To whatever port the service has.
  Head(Listener* listener, const std::string& serviceType, bool verbose);
  // To this port; with 0 or below to that of the service.
  Head(Listener* listener, const std::string& serviceType, int port, bool verbose);
  // Without browsing: the target is an IPv4 address or the name of a host that has one.
  Head(Listener* listener, int port, bool verbose);

  // Closes what is open and starts to connect, also to the same target. "": stays closed and idle.
  void Connect(std::string target);
  void Disconnect();  // closes and stays idle

  // Without a socket, or when the peer has ended its side, the text is dropped without a word. While the connect is
  // under way it is queued.
  void Send(const std::string& text);

  // The next `size` bytes of input come as one block, those that are here already included; 0: a line is next.
  void ExpectBLOB(unsigned int size);

  // What the browse has found, looked up at each attempt; an owner that knows of a host which doesn't announce itself
  // may add it. An instrument that gets another address or port under its old name isn't found there, and after the
  // end of this host's Avahi daemon no newcomer is: both take a new Head (net/bonjourclient.h).
  BonjourResolver& Resolver();

  bool IsConnected() const;
  std::string ConnectedTo() const;  // the last target, connected or not

 private:
  class Private;
  std::shared_ptr<Private> _private;
};
