#pragma once
// A feature that can be checked, and a client on the other end of a socket.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>

#include "Qon/include/framework/VerifyAgentSm.h"
#include "tests/harness/World.h"

namespace Tests {

/** A feature with one check; what the check does is the test's. */
class Feature : public Qon::QonBaseSm {
 public:
   Feature( Velto::Ptr< Qon::VerifyData > data, const String & name ) : data_( data ) {
      check_.attach< &Feature::handleVerify >( data, name, this );
      reverifyWatch_.attach( this, data.ptr() );
   }
   void handleVerify() {
      ++runs;
      if ( check ) {
         check();
      }
   }
   void handleRetryVerify() {
      ++repetitions;
      if ( recheck ) {
         recheck();
      }
   }
   void finds( const String & text ) { QON_FINDING( data_, text ); }

   int runs = 0, repetitions = 0;
   std::function< void() > check, recheck;

 private:
   Velto::Ptr< Qon::VerifyData > data_;
   Qon::VerifyCheck check_;
   Kiv::Watch< Qon::VerifyData::reverifyAttr, Feature, &Feature::handleRetryVerify > reverifyWatch_;
};

/** A pair of connected sockets. */
class Connection {
 public:
   Connection() { EXPECT_EQ( 0, socketpair( AF_UNIX, SOCK_STREAM, 0, ends ) ); }
   ~Connection() {
      close( ends[0] );
      hangUp();
   }
   U32 agentEnd() const { return U32( ends[0] ); }
   int clientEnd() const { return ends[1]; }
   void hangUp() {
      if ( ends[1] >= 0 ) {
         close( std::exchange( ends[1], -1 ) );
      }
   }
   /** What has arrived at the client. */
   String received() {
      String all;
      char some[4096];
      for ( ssize_t n; ( n = recv( ends[1], some, sizeof( some ), MSG_DONTWAIT ) ) > 0; ) {
         all.append( some, std::size_t( n ) );
      }
      return all;
   }

 private:
   int ends[2];
};

class VerifyWorld {
 public:
   explicit VerifyWorld( bool enabled = true ) {
      env.unset( "USE_BCMSIM" );
      env.unset( "SIMULATION_VMID" );
      enabled ? env.set( "ENABLE_VERIFY", "1" ) : env.unset( "ENABLE_VERIFY" );
      world = std::make_unique< World >();
      data = world->acsd->verifyData();
      feature = Qon::smIs< Feature >( data, "feature" );
   }
   void settle() { world->scheduler.settle(); }
   void runFor( Kiv::Seconds span ) { world->scheduler.runFor( span ); }
   U32 messages( const String & name ) const {
      U32 n = 0;
      for ( auto & record : world->logs.records() ) {
         n += record.name == name;
      }
      return n;
   }

   Env env;
   std::unique_ptr< World > world;
   Velto::Ptr< Qon::VerifyData > data;
   Velto::Ptr< Feature > feature;
};

} // namespace Tests
