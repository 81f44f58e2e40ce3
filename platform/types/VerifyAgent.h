#pragma once
// How an agent is asked to verify itself: by a cookie in its configuration, or by a command whose
// client waits on a descriptor.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"

namespace VerifyAgent {

/** Outcome of a verification run. */
enum class Result : U8 { none = 0, inProgress = 1, done = 2, failed = 3, retry = 4 };
KIV_ENUM( Result, none, inProgress, done, failed, retry )

/** What the requester writes: every new cookie asks for one run. */
class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ATTR( U32, cookie, 0 )
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What the agent answers. `cookie` is that of the last run that finished; it is written last
    but for `done`. */
class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ATTR( Result, result, Result::none )
   KIV_ATTR( U32, findings, 0 ) // how many there were
   KIV_ATTR( U32, cookie, 0 )
   KIV_ATTR( bool, done, false ) // no run is wanted or under way
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** One command of a client. Whoever takes it from the client makes it and, once it is done, removes
    it. */
class Request : public Kiv::Entity {
   KIV_BODY( Request, Kiv::Entity )
   KIV_ATTR( bool, done, false ) // the whole answer was written
 public:
   Request( const Velto::String & id, const Velto::String & command, U32 socket )
       : Kiv::Entity( id ), command_( command ), socket_( socket ) {}
   /** Without a client: what a request is that was made by its key only. */
   explicit Request( const Velto::String & id ) : Request( id, "", 0 ) {}

   const Velto::String & command() const { return command_; }
   /** The client's descriptor; 0 is none. */
   U32 socket() const { return socket_; }

 private:
   const Velto::String command_;
   const U32 socket_;
};

class RequestDir : public Kiv::Entity {
   KIV_BODY( RequestDir, Kiv::Entity )
   KIV_ENTITIES( Velto::String, Request, request )
 public:
   explicit RequestDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace VerifyAgent
