// HTTP/1 messages (RFC 9112) out of a stream of bytes that arrives in chunks of any size.
//
// The http_parser library does the parsing; this class gathers what it hands over in pieces and makes one call per
// complete message. Nothing is decoded but the framing: a URL stays as it was sent, percent signs included, a body
// comes without its chunk marks. A response comes without its status code, a request without its method.
//
// The header block of a message may have 80 KiB (the library's limit); a body has no limit: a peer that must not fill
// the memory has to be limited by the caller. Of the fields behind a chunked body the last one is not told.
//
// One thread. The parser holds no reference to the bytes that it was fed.

#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>

class HTTPParser {
 public:
  // The library's own values.
  enum Type : int { TypeRequest = 0, TypeResponse = 1, TypeBoth = 2 };

  // Names of header fields come with the case in which they were sent, and two that differ in it are two; of several
  // of the same name the last one counts.
  //
  // A call may ask the parser for Upgrade() and call Reset(); it may not feed or destroy it. What it throws reaches the
  // caller of Execute() or EndOfData() once the library, which is C, has returned; messages that are completed by the
  // rest of the same bytes are lost then, later ones aren't.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body);
    virtual void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body);
  };

  // What the library says of bytes that are no HTTP: "HPE_INVALID_VERSION: invalid HTTP version".
  class Error : public std::runtime_error {
   public:
    using runtime_error::runtime_error;
  };

  // `listener`: not owned, outlives the parser. `type`: of Type; any other value is TypeBoth, which settles on what the
  // first message is.
  HTTPParser(Listener* listener, int type);
  HTTPParser(const HTTPParser&) = delete;
  HTTPParser& operator=(const HTTPParser&) = delete;
  ~HTTPParser();

  // Feeds bytes, and calls the listener for each message that they complete. Returns the count consumed: all of them,
  // or fewer once Upgrade() is set, when the rest speaks another protocol and is the caller's.
  // Throws Error, after which only Reset() makes the parser usable again.
  size_t Execute(const std::string& data);

  // The peer has closed: completes a message that only this ends. Throws Error when any other message was under way.
  // The next stream wants a Reset() first.
  void EndOfData();

  // The last header block asked for another protocol (RFC 9110, 7.8), or the method was CONNECT. It stays set till the
  // next one, so that until then nothing is an error, whatever follows. That is meant.
  bool Upgrade() const;

  // Ready for a first message again. What was gathered of an incomplete one is dropped when the next one begins.
  void Reset();

 private:
  class HTTPParserImpl;
  std::unique_ptr<HTTPParserImpl> _impl;
};
