#pragma once
// How an operator asks a running agent to verify itself.
//
//    VerifyAgent::Config.cookie -> VerifyAgentSm -> one run -> VerifyAgent::Status
//    VerifyAgent::RequestDir -> CliRequestDirSm ---.
//    the agent's own server ------------------------+-> CliCallback::handleCommand( socket, command )
//          -> VerifySm: a run, at once; the whole answer is on the socket on return
//
// The answer, without a line end anywhere:
//    { "NAME" : [ { "KEY" : "FINDING" }, ... { "NAME": "END_OF_VERIFICATION" } ] }
//
// Invariants
// 1. A command without the prefix "VTS#NAME#" gets an empty answer in the callback's own name.
// 2. A cookie that the status holds at the start asks for nothing: a restarted agent does not verify
//    again what was answered. From then on every change of the cookie asks for a run, whatever it
//    changes to.
// 3. Operators' requests are run whether or not verification is enabled, and before the shared data
//    is initialized they wait for that.
// 4. What comes while a client's command is run leaves the client's answer alone.
//
// Ownership: the state machine owns the callback and the request directory's state machine; the
// callback points back without counting, and knows when the state machine has gone.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/VerifyData.h"
#include "platform/types/VerifyAgent.h"

namespace Qon {

class VerifyAgentSm;

/** What answers the commands of one name. */
class CliCallback : public Velto::Node {
 public:
   CliCallback( const String & name, const String & className )
       : name_( name ), className_( className ) {}

   const String & name() const { return name_; }
   const String & className() const { return className_; }
   /** Answers `command` on `socket`, which stays open; done on return. */
   virtual void handleCommand( U32 socket, const String & command ) = 0;

 private:
   const String name_;
   const String className_;
};

/** Answers a verification command. */
class VerifyAgentSmCliCallback : public CliCallback {
 public:
   VerifyAgentSmCliCallback( const String & name, const String & className, VerifyAgentSm * sm )
       : CliCallback( name, className ), sm_( sm ) {}

   void handleCommand( U32 socket, const String & command ) override;

   /** Whether the command carries this callback's prefix. */
   bool accepts( const String & command ) const;
   /** The state machine has gone: what comes now is answered empty. */
   void smDel() { sm_ = nullptr; }

 private:
   VerifyAgentSm * sm_;
};

/** Hands the commands in a request directory to a callback, each once. */
class CliRequestDirSm : public QonBaseSm {
 public:
   CliRequestDirSm( Velto::Ptr< VerifyAgent::RequestDir > requestDir,
                    Velto::Ptr< CliCallback > callback );

   void handleInitialized() override;
   void handleRequest( const String & id );

 private:
   const Velto::Ptr< VerifyAgent::RequestDir > requestDir_;
   const Velto::Ptr< CliCallback > callback_;
   Kiv::Watch< VerifyAgent::RequestDir::requestAttr, CliRequestDirSm,
               &CliRequestDirSm::handleRequest >
         requestWatch_;
};

Velto::Ptr< CliRequestDirSm > CliRequestDirSmIs( Velto::Ptr< VerifyAgent::RequestDir > requestDir,
                                                 Velto::Ptr< CliCallback > callback );

class VerifyAgentSm : public QonBaseSm {
 public:
   /** `requestDir` may be null: commands come by cliCallback() only then. */
   VerifyAgentSm( Velto::Ptr< QonCommonSmData > acsd,
                  Velto::Ptr< const VerifyAgent::Config > verifyAgentConfig,
                  Velto::Ptr< VerifyAgent::Status > verifyAgentStatus,
                  Velto::Ptr< VerifyAgent::RequestDir > requestDir, const String & agentName );
   ~VerifyAgentSm() override;

   void handleInitialized() override;
   /** The requester's cookie changed. */
   void handleVerifyAgent();
   /** The shared data has its verification data. */
   void handleVerifyData();
   /** A run finished or became due. */
   void handleVerifyStatus();

   QonCommonSmData * acsd() const { return acsd_.ptr(); }
   /** Null before the state machine is initialized. */
   VerifyAgentSmCliCallback * cliCallback() const { return cliCallback_.ptr(); }

 private:
   const Velto::Ptr< QonCommonSmData > acsd_;
   const Velto::Ptr< const VerifyAgent::Config > config_;
   const Velto::Ptr< VerifyAgent::Status > status_;
   const Velto::Ptr< VerifyAgent::RequestDir > requestDir_;
   const String agentName_;
   U32 cookie_ = 0;      // the last one that was looked at
   bool wanted_ = false; // a run for it is wanted or under way
   Velto::Ptr< VerifyAgentSmCliCallback > cliCallback_;
   Velto::Ptr< CliRequestDirSm > requestDirSm_;
   Kiv::Watch< VerifyAgent::Config::cookieAttr, VerifyAgentSm, &VerifyAgentSm::handleVerifyAgent >
         cookieWatch_;
   Kiv::Watch< QonCommonSmData::initializedAttr, VerifyAgentSm, &VerifyAgentSm::handleVerifyData >
         dataWatch_;
   Kiv::Watch< VerifyData::verifyDoneAttr, VerifyAgentSm, &VerifyAgentSm::handleVerifyStatus >
         doneWatch_;
};

Velto::Ptr< VerifyAgentSm >
VerifyAgentSmIs( Velto::Ptr< QonCommonSmData > acsd,
                 Velto::Ptr< const VerifyAgent::Config > verifyAgentConfig,
                 Velto::Ptr< VerifyAgent::Status > verifyAgentStatus,
                 Velto::Ptr< VerifyAgent::RequestDir > requestDir, const String & agentName );

} // namespace Qon
