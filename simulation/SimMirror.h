#pragma once
// Mirror sessions over the chip in software: more sessions than groups, aggregates, filters without
// room, tunnels that resolve and do not, limits and forwarding modes that change, refusals, restarts
// over what the chip holds, and changes made from within hooks.
//
// Checked after every event, from the configuration and the chip's calls alone:
// 1. A group is free once, or one session's; nobody waits while one is free.
// 2. The chip holds of each session with a group the destinations that are configured and valid, or
//    the tunnel that is resolved; what an earlier life left of a tunnel stays as it is until the chip
//    says that it may be touched and it is made anew; the sources that are configured, valid and filtered by lists that
//    are there, save those that the chip refused or that do not fit; all of them with the wanted
//    direction, and with the filter's present rules.
// 3. What is kept out for its fit would not fit beside what is in the chip.
// 4. Status, groups by name and egress ids say that, and nothing else.
// 5. Groups are handed out in the order in which they came free (MirrorQueue.h).
// 6. Who begins to wait for a group, a source that begins to be kept out, a destination and a filter
//    without room are said, once; and that no source is kept out any more.
// And at every call:
// 7. Destinations come before sources and go after them, a tunnel never beside a destination; what
//    is removed is there, as it is described.

#include <map>
#include <optional>
#include <set>

#include "agent/softchip/Chip.h"
#include "agent/softchip/MirrorPart.h"
#include "simulation/MirrorQueue.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimMirror : public SimFeature {
 public:
   explicit SimMirror( World & world );
   ~SimMirror() override;

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   bool ready() override;
   String checkStep() const override;
   String checkInvariants() const override;
   void heard( const Kiv::LogDescriptor & message, const String & text ) override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   /** The copies of a session of what passes its sources. */
   struct Copies {
      String name;
      bool known = true; ///< false: of an earlier life, or its tunnel was refused
      U32 group = 0;
      std::set< Ulnet::IntfId > targets; ///< by each of them
      Ulnet::IntfId tunnel;              ///< by this port too, in a tunnel; null: none
      Bridging::VlanIdOrNone tunnelVlan;
      std::map< Ulnet::IntfId, Mirroring::Direction > sources;
   };
   /** None in a pause. */
   std::optional< std::vector< Copies > > wantedInChip() const;

 private:
   using IntfId = Ulnet::IntfId;
   using Direction = Mirroring::Direction;
   class Helper;

   /** What the calls to the chip have come to. */
   struct Told {
      S32 group = -1;
      std::set< IntfId > targets;
      bool tunnel = false;
      std::map< IntfId, Direction > sources;
      std::set< IntfId > refusedTargets, refusedSources;    // the last word about them
      std::map< IntfId, std::pair< String, U32 > > filters; // list and its version
      bool refusedTunnel = false;
      // The tunnel of an earlier life, with its sources; none once it is made anew, or removed.
      Mirroring::TunnelType left = Mirroring::TunnelType::none;
      U32 creations = 0; // in hardware
   };
   enum class Kept : U8 { in, overLimit, overlap }; // out of hardware, by the other sources
   /** A port of a session: which session, of which configuration. */
   struct Where {
      String name;
      IntfId port;
      auto operator<=>( const Where & ) const = default;
   };
   /** What was seen of a source when it was looked at last. */
   struct Seen {
      Kept kept = Kept::in;
      std::vector< Velto::Ptr< const Kiv::Entity > > by; // what it is configured by
      U32 creations = 0;
   };
   struct Said {
      Kept kept; // in: that all is well
      Where where;
   };
   using SessionConfigPtr = Velto::Ptr< const Mirroring::SessionConfig >;
   /** What was said, and what of that holds on. */
   struct Words {
      std::vector< Said > now; // since the last look, as the following
      std::vector< String > waits;
      U32 aclFull = 0, filtersRefused = 0;
      std::map< Where, bool > aclRefused; // filters that were known to have room; taken since
      std::set< Where > refused;          // destinations of internal sessions
      bool disturbed = false;             // something came and went, perhaps

      std::map< Where, Seen > sources;
      std::map< String, SessionConfigPtr > waiting, flagged;
      std::map< Where, SessionConfigPtr > aclKnown, refusalSaid;
   };
   /** What the configuration wants of a source port. */
   struct Wanted {
      Direction direction = Direction::none;
      String acl;
      Acl::AclType aclType = Acl::AclType::ip;
      bool valid = false;
   };

   /** @name Operations */
   /** @{ */
   void sessionIs( const Event & event );
   void sessionDel( const Event & event );
   void recreate( const Event & event );
   void targetIs( const Event & event );
   void targetDel( const Event & event );
   void sourceIs( const Event & event );
   void sourceDel( const Event & event );
   void filterIs( const Event & event );
   void vxlanIs( const Event & event );
   void tunnelIs( const Event & event );
   void attributeIs( const Event & event );
   void aclIs( const Event & event );
   void resolutionIs( const Event & event );
   void memberIs( const Event & event );
   void activeIs( const Event & event );
   void maxIs( const Event & event );
   void limitsAre( const Event & event );
   void modeIs( const Event & event );
   void latencyIs( const Event & event );
   void finish( const Event & event );
   void nestedIs( const Event & event );
   void pause( const Event & event );
   void restart( const Event & event );
   /** @} */

   String name( U32 i ) const { return "m" + std::to_string( i % 8 ); }
   /** Held: it may end within a change of it. */
   Velto::Ptr< Mirroring::SessionConfig > session( const Event & event ) const;
   Ulnet::IpGenAddr farEnd( U32 i ) const;
   void called();
   void beginAnew();
   void misuseIf( bool wrong, const String & what );
   void change( U32 what );

   // The model
   bool valid( IntfId intf ) const;
   std::vector< IntfId > membersOf( IntfId lag ) const;
   bool isAggregate( IntfId intf ) const;
   std::set< IntfId > wantedTargets( const Mirroring::SessionConfig & config ) const;
   std::map< IntfId, Wanted > wantedSources( const Mirroring::SessionConfig & config ) const;
   bool tunnelReady( const Mirroring::SessionConfig & config ) const;
   const Acl::AclConfig * acl( Acl::AclType type, const String & acl ) const;
   bool fits( const std::map< IntfId, Direction > & sources, IntfId port, Direction direction,
              bool tunnel ) const;

   String checkGroups() const;
   String checkSession( const String & name ) const;
   String checkDestinations( const String & name, const Told & told ) const;
   String checkSources( const String & name, const Told & told ) const;
   String checkStatus( const String & name, const Told & told ) const;

   // What is said
   const Told & toldOf( const String & name ) const;
   bool inHardware( const String & name ) const;
   Kept keptOut( const String & name, IntfId port, Direction direction ) const;
   std::map< Where, Seen > look() const;
   String checkWords() const;
   String checkWaiting() const;
   String checkKeptOut( const std::map< Where, Seen > & sources ) const;
   String checkWell( const std::map< Where, Seen > & sources ) const;
   String checkRefusals() const;
   std::map< String, U32 > heldGroups( bool configured ) const;

   SoftChip::MirrorTable & table_;
   Velto::Ptr< Mirroring::Config > config_;
   Velto::Ptr< Mirroring::HwCapability > capability_;
   Velto::Ptr< Mirroring::HwStatus > hwStatus_;
   Velto::Ptr< Mirroring::Status > status_;
   Velto::Ptr< Acl::Config > acls_;
   Velto::Ptr< Tunnel::Status > tunnels_;
   Velto::Ptr< Bridging::ForwardingModeConfig > mode_;
   Velto::Ptr< Interface::EthPhyIntfStatusDir > phy_;
   Velto::Ptr< Helper > helper_;
   Velto::Ptr< Qon::MirroringSm > sm_;
   std::map< String, Told > told_;
   MirrorQueue queue_;
   mutable Words words_;
   U32 nested_ = 0;
   U64 serial_ = 0;
   bool inHook_ = false;
   bool paused_ = false;
};

} // namespace Sim
