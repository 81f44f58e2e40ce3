#pragma once
// Shared verification data: who wants a run, who can be checked, what was found.
//
//    feature state machine -> doRequestVerify() -> verifyRequired -> VerifySm (arms its clock)
//    VerifySm's run -> every registered check -> QON_FINDING -> reportFinding()
//          -> verifyOutput, verifyInc, and by updateCliVerifyOutput() the client's socket
//    a check that may have come too early -> retryVerifyIs( true ) -> VerifySm counts up
//          `reverify` a second later, which that feature watches to look again
//
// Invariants
// 1. `verify` gates the requests of features and nothing else.
// 2. Checks run in the order of their registration; a check of an object that died is gone.
// 3. resetVerifyData() forgets findings and the client, never a pending request, a check or an
//    outcome.
// 4. A client that has gone, or takes nothing for `clientPatience` seconds, costs its connection: it
//    is no client any more, and the run goes on. Descriptors are never closed here.
// 5. A check that raises costs no other check its turn, and leaves client, counts and wishes for a
//    repetition as they shall be; then the first exception passes to whoever started the run.
// 6. A check, or a watcher of what it finds, may end any of these objects: each lives until its
//    part of the run is over.
//
// Ownership: owned by the shared agent data; checks belong to what they check.

#include <vector>

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/Kiv/Text.h"
#include "platform/Kiv/Time.h"
#include "platform/types/VerifyAgent.h"

namespace Qon {

class VerifyData;

/** One feature's place in the verification run; a member of the state machine that is checked.
    Registered by its handleInitialized, withdrawn by its destruction. */
class VerifyCheck {
 public:
   using Run = void ( * )( Velto::Node * owner );

   VerifyCheck() = default;
   VerifyCheck( const VerifyCheck & ) = delete;
   VerifyCheck & operator=( const VerifyCheck & ) = delete;
   ~VerifyCheck();

   /** `run( owner )` is called in every run from now on; null data withdraws. Registering again
       keeps the place. */
   void attach( Velto::Ptr< VerifyData > data, const String & name, Velto::Node * owner, Run run );
   /** The same for a member function of the owner. */
   template< auto handler, class Owner >
   void attach( Velto::Ptr< VerifyData > data, const String & name, Owner * owner ) {
      attach( std::move( data ), name, static_cast< Velto::Node * >( owner ),
              []( Velto::Node * o ) { ( static_cast< Owner * >( o )->*handler )(); } );
   }
   const String & name() const { return name_; }

 private:
   friend class VerifyData;
   Velto::Ptr< VerifyData > data_;
   String name_;
   Velto::Node * owner_ = nullptr;
   Run run_ = nullptr;
};

/** Outcome of the last run. */
using VerifyResult = VerifyAgent::Result;

/** The request counter: every change of it asks for one run. */
class VerifyRequired : public Kiv::Entity {
   KIV_BODY( VerifyRequired, Kiv::Entity )
   KIV_ATTR( U32, verifyRequired, 0 )
 public:
   explicit VerifyRequired( const String & name ) : Kiv::Entity( name ) {}
};

/** One finding. */
class VerifyOutput {
   String description_;
   String filename_;
   U32 lineNum_ = 0;
   String function_;
   VerifyResult verifyResult_ = VerifyResult::none;
   KIV_VALUE( Qon, VerifyOutput, description, filename, lineNum, function, verifyResult )
};

class VerifyData : public Kiv::Entity {
   KIV_BODY( VerifyData, Kiv::Entity )
   KIV_ATTR( bool, verify, false ) // enabled; set by VerifySm at its start
   KIV_OWNED( VerifyRequired, verifyRequired )
   KIV_ATTR( U32, socket, 0 ) // descriptor of the client of the current run; 0 is none
   KIV_MAP( String, String, cliVerifyOutput )
   KIV_ATTR( VerifyOutput, verifyOutput )
   KIV_ATTR( U32, verifyInc, 0 ) // findings of the current run
   KIV_ATTR( VerifyResult, verifyResult, VerifyResult::none )
   KIV_ATTR( bool, verifyDone, false )
   KIV_ATTR( bool, retryVerify, false )
   KIV_ATTR( U32, reverify, 0 )
   KIV_ATTR( Kiv::Seconds, clientPatience,
             1.0 ) // with a client that takes nothing; it holds up all
 public:
   explicit VerifyData( const String & name ) : Kiv::Entity( name ) {}

   /** Asks for a run, if verification is enabled. What feature state machines call. */
   void doRequestVerify();
   /** Forgets the findings and the client. */
   void resetVerifyData();
   /** resetVerifyData(), then takes `socket` as the client. */
   void initVerifyData( U32 socket );
   /** Remembers one finding under a key, and writes it to the client if there is one, as
       `{ "key" : "value" },`. Key and value are written as they are. */
   void updateCliVerifyOutput( const String & key, const String & value );
   /** Records a finding: verifyOutput, the count, the client. The key is
       "<file>:<line>#<count>"; the client gets both as JSON texts, without the description's
       last line end. */
   void reportFinding( const VerifyOutput & output );
   /** Runs every registered check once. */
   void runChecks();
   /** Before a repetition: forgets the findings of the checks that asked for it, but not the count
       and the last finding of the others. */
   void dropTentativeFindings();

   const std::vector< VerifyCheck * > & checks() const { return checks_; }

 private:
   friend class VerifyCheck;
   void runCheck( VerifyCheck * check );

   std::vector< VerifyCheck * > checks_;
   U32 firmFindings_ = 0; // of checks that asked for no repetition
   VerifyOutput lastFirmFinding_;
};

/** Writes to a client, which may be slow or gone; false if it did not take all of it, or if there
    is none (0). Waits at most `patience` seconds, in steps of 10 ms of real time, for a client that
    takes nothing. For sockets, pipes and files: a closed pipe is a client that has gone. */
bool writeToClient( U32 socket, const String & text, Kiv::Seconds patience );

} // namespace Qon

/** Reports a finding of the check that this line stands in. */
#define QON_FINDING( verifyData, text )                                                            \
   ( verifyData )                                                                                  \
         ->reportFinding( ::Qon::VerifyOutput( text, __FILE__, U32( __LINE__ ), __func__,          \
                                               ::Qon::VerifyResult::failed ) )
