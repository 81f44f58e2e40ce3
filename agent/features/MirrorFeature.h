#pragma once
// Mirror sessions: table MIRROR_SESSION becomes what Qon::MirroringSm works on; the console shows
// who has a group, and what of each session is in hardware.
//
//    ConfigDB, events -> Mirroring::Config, tunnels, access lists, forwarding mode
//                     -> Qon::MirroringSm -> the chip's helper
//    Mirroring::Status -> a journal of times -> show mirror
//
// Sources: MirrorFeature.cc (configuration, events), MirrorFeatureShow.cc.

#include <map>
#include <set>

#include "Qon/include/mirroring/MirroringSession.h"
#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "chip/MirrorPart.h"

namespace QonAgent {

class ConfigRow;

class MirrorFeature : public AgentFeature {
 public:
   explicit MirrorFeature( Agent & agent );
   ~MirrorFeature() override;

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   /** The state machine begins when it knows what is still wanted of what the chip holds. */
   void inputsRead() override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Mirroring::", "MirroringSmHelper", "Tunnel::" };
   }

   /** Null if the chip has no mirror sessions. */
   Qon::MirroringSm * mirroringSm() const { return sm_.ptr(); }

 private:
   using Session = Qon::MirroringSm::KivMirroringSession;
   class Journal;

   /** What a row says. */
   struct Wanted {
      std::set< Ulnet::IntfId > targets;
      std::set< Ulnet::IntfId > sources;
      Mirroring::Direction direction = Mirroring::Direction::both;
      U32 sampling = 0;
      U16 truncation = 0;
      Mirroring::TunnelInfo tunnel;
      bool operator==( const Wanted & ) const = default;
   };
   Wanted wantedOf( ConfigReader & reader, const ConfigRow & row ) const;
   void sessionIs( const String & name, const Wanted & wanted, const Wanted * former );
   Mirroring::TunnelInfo tunnel( const ConfigRow & row ) const;
   std::function< void() > parseTunnel( const Json & line );
   std::function< void() > parseMode( const Json & line );
   std::function< void() > parseAcl( const Json & line );

   void served() const;
   Rows sessions( Arguments arguments ) const;
   std::vector< Row > sessionRows( const String & name ) const;
   Row sessionRow( const String & name, const Session & session ) const;
   Row sourceRow( const Session & session, Ulnet::IntfId port ) const;
   Row targetRow( const Session & session, Ulnet::IntfId port ) const;
   Row tunnelRow( const Session & session ) const;
   Value since( const String & name, const String & what, Ulnet::IntfId port ) const;
   Rows hardware() const;

   Agent & agent_;
   QonChip::MirrorPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Mirroring::Config > config_;
   const Velto::Ptr< Mirroring::Status > status_;
   const Velto::Ptr< Mirroring::HwCapability > capability_;
   const Velto::Ptr< Mirroring::HwStatus > hwStatus_;
   const Velto::Ptr< Acl::Config > acls_;
   const Velto::Ptr< Tunnel::Status > tunnels_;
   const Velto::Ptr< Bridging::ForwardingModeConfig > mode_;
   Velto::Ptr< Journal > journal_;
   Velto::Ptr< Qon::MirroringSm > sm_;
   Configured< String, Wanted > configured_;
};

} // namespace QonAgent
