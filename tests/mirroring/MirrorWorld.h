#pragma once
// Mirror sessions over a chip that records every call and holds what it was told.

#include <set>

#include "Qon/include/mirroring/MirroringSession.h"
#include "tests/harness/World.h"

namespace MirrorTests {

using Mirroring::Direction;
using Mirroring::TunnelType;
using Tests::String;
using Ulnet::IntfId;
using Velto::Ptr;
using Session = Qon::MirroringSm::KivMirroringSession;

inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}
inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}

/** The chip. Calls are texts: "create s1 0 -1 Ethernet1", "+src s1 0 -1 Ethernet2 rx", ... */
class RecordingHelper : public Qon::MirroringSmHelper {
 public:
   struct Held {
      int group = -1;
      bool tunnel = false;
      std::set< IntfId > targets;
      std::map< IntfId, Direction > sources;
   };
   std::vector< String > calls;
   std::map< String, Held > held;
   std::set< IntfId > invalid;       // for sources and destinations
   std::set< IntfId > refusedTarget; // createMirror says no
   std::set< IntfId > refusedSource;
   bool refusesTunnels = false, removalsFail = false;
   U8 maxBi = 255, maxUni = 255;
   std::function< void( const String & call ) > onCall;
   std::function< void() > onAsked; // about limits, interfaces, and what is held
   /** What does not fit together in the order of calls. */
   std::vector< String > misuse;

   bool createMirror( const String & name, int group, int egress, IntfId port,
                      bool update ) override {
      called( "create " + head( name, group, egress ) + port.stringValue() +
              ( update ? " update" : "" ) );
      if ( update != held.contains( name ) ) {
         misuse.push_back( "update of " + name );
      }
      if ( refusedTarget.contains( port ) ) {
         return false;
      }
      hold( name, group ).targets.insert( port );
      return true;
   }
   bool removeMirror( const String & name, int group, int egress,
                      const Qon::QonPortList & ports ) override {
      String list;
      for ( IntfId port : ports ) {
         list += ( list.empty() ? "" : "," ) + port.stringValue();
         if ( !held[name].targets.erase( port ) ) {
            misuse.push_back( "no destination " + port.stringValue() );
         }
      }
      called( "remove " + head( name, group, egress ) + list );
      gone( name );
      return !removalsFail;
   }
   bool createGreTunnelMirror( const String & name, int group, int egress,
                               const Mirroring::TunnelInfo & info,
                               const Tunnel::Resolution & via ) override {
      called( "+tunnel " + head( name, group, egress ) + Kiv::toText( info.type() ) + " " +
              via.intf().stringValue() );
      if ( refusesTunnels ) {
         return false;
      }
      hold( name, group ).tunnel = true;
      return true;
   }
   bool updateGreTunnelMirror( const String & name, int group, int egress,
                               const Mirroring::TunnelInfo & info,
                               const Tunnel::Resolution & via ) override {
      called( "=tunnel " + head( name, group, egress ) + "ttl " + Kiv::toText( info.ttl() ) + " " +
              via.intf().stringValue() );
      if ( !held[name].tunnel ) {
         misuse.push_back( "no tunnel of " + name );
      }
      return !refusesTunnels;
   }
   bool removeGreTunnelMirror( const String & name, int group, int egress ) override {
      called( "-tunnel " + head( name, group, egress ) );
      held[name].tunnel = false;
      gone( name );
      return !removalsFail;
   }
   bool addSourceToHardware( const String & name, int group, int egress, IntfId port,
                             Direction direction ) override {
      String filter;
      if ( auto session = mirroringSm()->session( name ) ) {
         auto & wanted = session->srcIntfLocal( port )->wanted();
         filter = wanted.filtered() ? " acl " + wanted.aclName() : "";
      }
      called( "+src " + head( name, group, egress ) + port.stringValue() + " " +
              Kiv::toText( direction ) + filter );
      if ( !held.contains( name ) ) {
         misuse.push_back( "source of no session " + name );
      }
      if ( refusedSource.contains( port ) ) {
         return false;
      }
      held[name].sources[port] = direction;
      return true;
   }
   bool removeSourceFromHardware( const String & name, int group, int egress, IntfId port,
                                  Direction direction, bool going ) override {
      called( "-src " + head( name, group, egress ) + port.stringValue() + " " +
              Kiv::toText( direction ) + ( going ? " going" : "" ) );
      auto source = held[name].sources.find( port );
      if ( source == held[name].sources.end() || source->second != direction ) {
         misuse.push_back( "no source " + port.stringValue() );
      } else {
         held[name].sources.erase( source );
      }
      return !removalsFail;
   }
   bool verifySinglePort( const String & name, int, int, IntfId port ) override {
      asked();
      return held[name].targets.contains( port );
   }
   bool verifyGreTunnelMirror( const String & name, int, int,
                               const Mirroring::TunnelInfo & ) override {
      asked();
      return held[name].tunnel;
   }
   void hwInit() override { called( "hwInit" ); }
   U8 maxBiDirSources() override {
      asked();
      return maxBi;
   }
   U8 maxUniDirSources() override { return maxUni; }
   void updateCounters() override { called( "counters" ); }
   bool isValidIntf( const Interface::EthPhyIntfStatus *, IntfId intf, bool ) override {
      asked();
      return !invalid.contains( intf );
   }
   void setTcamProfileFeature( const String & session, const String & feature ) override {
      called( "tcam " + session + " " + feature );
   }

   /** The calls since the last time. */
   std::vector< String > taken() { return std::exchange( calls, {} ); }

 private:
   static String head( const String & name, int group, int egress ) {
      return name + " " + std::to_string( group ) + " " + std::to_string( egress ) + " ";
   }
   Held & hold( const String & name, int group ) {
      for ( auto & [other, session] : held ) {
         if ( other != name && session.group == group ) {
            misuse.push_back( "group of " + name + " is " + other + "'s" );
         }
      }
      held[name].group = group;
      return held[name];
   }
   void gone( const String & name ) {
      auto & session = held[name];
      if ( session.targets.empty() && !session.tunnel ) {
         if ( !session.sources.empty() ) {
            misuse.push_back( "sources left of " + name );
         }
         held.erase( name );
      }
   }
   void called( const String & call ) {
      calls.push_back( call );
      alone( onCall, call );
   }
   void asked() { alone( onAsked ); }
   /** What a hook changes is taken up when it is done: no other is called within. */
   template< class Act, class... Args >
   void alone( const Act & act, const Args &... args ) {
      if ( std::exchange( busy_, true ) ) {
         misuse.push_back( "a call within a call" );
      }
      const Velto::AtEnd done( [this] { busy_ = false; } );
      if ( const Act taken = act ) {
         taken( args... );
      }
   }
   bool busy_ = false;
};

using Calls = std::vector< String >;

class MirrorWorld : public Tests::World {
 public:
   MirrorWorld() { capability->maxSupportedSessionsIs( 4 ); }
   ~MirrorWorld() { EXPECT_EQ( helper->misuse, Calls() ); }

   void start() {
      sm = Qon::MirroringSmIs( { acsd, config, capability, status, helper, hwStatus, acls, tunnels,
                                 mode, phy, acsd->verifyData() } );
      sm->initializedIs( true );
      helper->taken();
   }
   /** A session to Ethernet`to`. */
   Mirroring::SessionConfig * session( const String & name, U32 to = 0 ) {
      auto made = config->sessionIs( name );
      if ( to ) {
         made->targetIntfIs( eth( to ) );
      }
      return made.ptr();
   }
   Mirroring::SrcIntfConfig * source( const String & name, IntfId intf,
                                      Direction direction = Direction::rx ) {
      return config->sessionIs( name )->srcIntfIs( intf, direction ).ptr();
   }
   Mirroring::SrcIntfConfig * source( const String & name, U32 n,
                                      Direction direction = Direction::rx ) {
      return source( name, eth( n ), direction );
   }
   void filter( const String & name, U32 n, const String & acl,
                Acl::AclType type = Acl::AclType::ip ) {
      auto made = config->session( name )->srcIntfIs( eth( n ), Direction::rx );
      made->aclTypeIs( type );
      made->aclNameIs( acl );
   }
   Acl::AclConfig * acl( const String & name, Acl::AclType type = Acl::AclType::ip ) {
      return acls->typeIs( type )->aclIs( name ).ptr();
   }
   void join( U32 lag, U32 port ) {
      auto list = acsd->lagToPort( po( lag ) );
      list.portIs( eth( port ), Qon::QonLagPort( true, true ) );
      acsd->lagToPortIs( po( lag ), list );
      acsd->portToLagIs( eth( port ), po( lag ) );
   }
   void leave( U32 lag, U32 port ) {
      auto list = acsd->lagToPort( po( lag ) );
      list.portDel( eth( port ) );
      acsd->lagToPortIs( po( lag ), list );
      acsd->portToLagDel( eth( port ) );
   }
   Mirroring::TunnelInfo gre( const String & dst = "10.0.0.1" ) const {
      Mirroring::TunnelInfo info;
      info.typeIs( TunnelType::gre );
      info.srcIs( Ulnet::IpGenAddr( "10.0.0.9" ) );
      info.dstIs( Ulnet::IpGenAddr( dst ) );
      return info;
   }
   void resolve( const String & dst, U32 port ) {
      tunnels->resolutionIs( { Ulnet::IpGenAddr( dst ), "" },
                             { eth( port ), Ulnet::EthAddr( 0x020000000001ull ), {} } );
   }
   void unresolve( const String & dst ) {
      tunnels->resolutionDel( { Ulnet::IpGenAddr( dst ), "" } );
   }
   S32 group( const String & name ) const {
      auto session = sm->session( name );
      return session ? session->mirrorGroup() : -2;
   }
   std::vector< int > free() const {
      std::vector< int > ids;
      auto & pool = *acsd;
      for ( U32 n = pool.freeMirrorSessions(); n; --n ) {
         const U8 id = pool.freeMirrorSessionFront();
         ids.push_back( id );
         pool.freeMirrorSessionDeq();
         pool.freeMirrorSessionEnq( id );
      }
      return ids;
   }
   /** "NAME: text" of the messages since the last time, without the facility's first words. */
   std::vector< String > messages() {
      std::vector< String > names;
      for ( auto & record : logs.records() ) {
         names.push_back( record.name );
      }
      logs.clear();
      return names;
   }
   String broken() const { return sm->checkInvariants(); }

   Ptr< Mirroring::Config > config = Velto::make< Mirroring::Config >( "config" );
   Ptr< Mirroring::HwCapability > capability =
         Velto::make< Mirroring::HwCapability >( "capability" );
   Ptr< Mirroring::Status > status = Velto::make< Mirroring::Status >( "status" );
   Ptr< Mirroring::HwStatus > hwStatus = Velto::make< Mirroring::HwStatus >( "hw" );
   Ptr< Acl::Config > acls = Velto::make< Acl::Config >( "acls" );
   Ptr< Tunnel::Status > tunnels = Velto::make< Tunnel::Status >( "tunnels" );
   Ptr< Bridging::ForwardingModeConfig > mode =
         Velto::make< Bridging::ForwardingModeConfig >( "mode" );
   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< RecordingHelper > helper = Velto::make< RecordingHelper >();
   Ptr< Qon::MirroringSm > sm;
};

} // namespace MirrorTests
