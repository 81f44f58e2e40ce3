#pragma once
// What VlanMappingSm keeps of every translation, and the review of one key that makes true what is
// wanted. Both directions and both sources are one body.
//
//    ask( question ) ... settle() -> one question at a time -> review
//       key     who owns it? -> claim, withdraw, update -> every port of the interface
//       port    it has another ruler: what the former had there goes, then what the new one wants comes
//       status  a chip agent's answer
//       sweep   what could not be removed from a port
//
//    Interface: wishes of the sources -> claims -> what the ports of it hold
//
// Invariants
// 1. All changes are made inside a question, one at a time; hooks and watchers only ask.
// 2. Each question compares what is with what shall be, and can be put again after an exception.
// 3. A claim of an interface, and what is held by a port, are entries of one table of that interface:
//    they are two things for a port that is a member of a port-channel.

#include <optional>
#include <span>
#include <vector>

#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "Qon/vlanmapping/VlanMappingLog.h"

namespace Qon {

class VlanTranslations {
 public:
   using IntfId = Ulnet::IntfId;
   using Direction = Bridging::VlanMappingDirection;
   using Source = QonVlanMappingSource;
   using Key = Bridging::VlanXlateKey;
   using Mapping = Bridging::VlanXlateMapping;
   using Status = QonTypes::TableAddStatus;
   using Config = Bridging::VlanXlateIntfConfig;
   using Outcome = VlanMappingSm::Outcome;

   /** What a port holds under a key. From `handedOver` on by the directories. */
   enum class State : U8 { none, trying, held, notNow, handedOver, handedHeld, handedNotNow };

   struct Entry {
      // As an interface that is configured
      Mapping mapping; // that the owner claimed it for
      Source owner = Source::None;
      bool announce = false; // the owner got it from another one, and nobody was told yet
      // As a port
      Source heldFor = Source::None;
      State state = State::none;
      Mapping held;
      U32 version = 0; // that was handed over

      bool empty() const { return owner == Source::None && state == State::none; }
   };
   /** Entries by key. It remembers where it found the last one: a question asks for one key many
       times. */
   class Entries {
    public:
      Entry * find( Key key ) {
         if ( !recent_ || !( recentKey_ == key ) ) {
            recentKey_ = key;
            recent_ = table_.find( key );
         }
         return recent_;
      }
      /** Makes it if there is none. */
      Entry & at( Key key ) {
         Entry * held = find( key );
         recent_ = held ? held : table_.emplace( key ).first;
         return *recent_;
      }
      void erase( Key key ) {
         recent_ = nullptr; // others may move
         table_.erase( key );
      }
      bool empty() const { return table_.empty(); }
      auto begin() { return table_.begin(); }
      auto end() { return table_.end(); }

    private:
      Kiv::DenseMap< Key, Entry > table_;
      Key recentKey_;
      Entry * recent_ = nullptr;
   };
   struct Claim {
      Key key;
      Direction direction;
      Source source;
      bool operator==( const Claim & ) const = default;
      U64 hash() const {
         return U64( key.vlanId() ) << 32 | U64( key.innerVlanId() ) << 16 | U64( direction ) << 8 |
                U64( source );
      }
   };
   struct Interface {
      Velto::Ptr< const Config > input[2]; // of each source
      IntfId ruler;                        // whose translations it has, while it is a member
      std::vector< IntfId > members;
      mutable Entries entries[2]; // of each direction
      U16 native[2] = {};         // the VLAN whose key was asked for last
      Kiv::DenseMap< Claim, Mapping > givenUp;
      Kiv::DenseMap< Claim, Mapping > reported; // as conflicts

      bool empty() const;
   };

   explicit VlanTranslations( VlanMappingSm * sm ) : sm_( sm ) {}

   /** @name Inputs */
   /** @{ */
   /** Null: the source wants nothing of the interface any more, and begins afresh. */
   void inputIs( IntfId intf, Source source, Velto::Ptr< const Config > config );
   /** The native VLAN changed: both keys that it is about. */
   void askNative( IntfId intf, Direction d );
   void askKey( IntfId intf, Direction d, Key key, Source apply = Source::None );
   /** Every key that is wanted by the source or kept. */
   void askAll( IntfId intf, Source source, bool apply );
   void askPort( IntfId port ) { ask( { What::port, {}, Source::None, port, {} } ); }
   void askStatus( Direction d, const PortVlanKey & key ) {
      ask( { What::status, d, Source::None, key.portId(), key.key() } );
   }
   void askEncap( IntfId intf ) {
      ask( { What::encap, Direction::egress, Source::None, intf, {} } );
   }
   /** A wish changed: what is remembered of another one is forgotten at once. True if there was
       anything. */
   bool forgetOld( IntfId intf, Direction d, Key key, Source source );
   void forgetOld( IntfId intf, Source source );
   /** Looks at what was asked, unless that is held up. */
   void settle();
   /** Until settle() after `false`, only asks. */
   void holdUpIs( bool v ) { holdUp_ = v; }
   void handleCodef( Direction d );
   /** @} */

   /** @name Start */
   /** @{ */
   void startsIs( bool starting, bool graceful ) {
      silent_ = starting;
      graceful_ = graceful;
   }
   /** Takes over what the directories hold. */
   void restore();
   std::vector< IntfId > interfaces() const;
   /** @} */

   /** @name Steps, from without */
   /** @{ */
   Status add( Direction d, IntfId intf, Key key, Mapping mapping, bool inLag, Source source );
   void del( Direction d, IntfId intf, Key key, Source source );
   /** @} */

   /** Whose translation is there, see VlanMappingSm::ingVlanXlateSourceMap(). */
   Source sourceOf( Direction d, const PortVlanKey & key ) const;
   Outcome outcome( IntfId intf, Direction d, Key key, Source source ) const;
   void verify() const;
   String checkInvariants() const;

 private:
   enum class What : U8 { key, port, status, encap, sweep };
   struct Question {
      What what;
      Direction direction;
      Source apply; // whose configuration is being applied again
      IntfId intf;
      Key key;
   };
   void ask( const Question & question ) { work_.add( question ); }
   void answer( const Question & question );

   Interface & at( IntfId intf );
   const Interface * find( IntfId intf ) const;
   const Entry * find( IntfId intf, Direction d, Key key ) const;
   Entry & entry( IntfId intf, Direction d, Key key );
   void dropIfEmpty( IntfId intf );
   bool isLag( IntfId intf ) const;
   /** The ports that the interface leads to now. */
   std::span< const IntfId > targets( const IntfId & intf, const Interface & i, bool inLag ) const;
   std::optional< Mapping > wish( const Interface & i, Direction d, Key key, Source source ) const;
   IntfId rulerOf( IntfId port ) const;

   void reviewKey( IntfId intf, Direction d, Key key, Source apply );
   void settleOwner( IntfId intf, Direction d, Key key, Source apply );
   Source nextOwner( IntfId intf, Direction d, Key key, Source former ) const;
   Status claim( Direction d, IntfId intf, Key key, Mapping mapping, bool inLag, Source source );
   void reportConflicts( IntfId intf, Direction d, Key key );
   void reportConflict( IntfId intf, Direction d, Key key, Source source, Mapping wanted );
   void conclude( IntfId intf, Direction d, Key key );
   void reviewPort( IntfId port );
   void clearPort( IntfId port, IntfId ruler );
   void sweep( IntfId port, Direction d, Key key );
   void reviewStatus( IntfId port, Direction d, Key key );

   Status program( IntfId intf, Direction d, Key key, bool inLag, Source apply );
   Status programPort( IntfId intf, IntfId port, Direction d, Key key, bool inLag, Source apply );
   Status handOver( IntfId intf, IntfId port, Direction d, Key key, Entry & held );
   void took( IntfId intf, IntfId port, Direction d, Key key, Status status );
   void giveUp( IntfId intf, Direction d, Key key, Status why );
   void withdraw( IntfId intf, Direction d, Key key );
   void removePort( IntfId intf, IntfId port, Direction d, Key key );
   void announce( IntfId intf, Direction d, Key key );

   void publishPort( IntfId intf, IntfId port, Direction d, Key key );
   void publishKeySet( IntfId port, Key key );
   void publishMember( IntfId lag, IntfId port, Direction d, Key key );
   void unpublishMember( IntfId lag, IntfId port );
   void reviewEncap( IntfId intf );

   void restore( Direction d, const PortVlanKey & key, const QonVlanMappingConfig & config );
   void adoptRuler( IntfId port );
   Source restoredOwner( const PortVlanKey & key, const QonVlanMappingConfig & config ) const;
   String checkInterface( IntfId intf, const Interface & i ) const;
   String checkEntry( IntfId intf, const Interface & i, Direction d, Key key,
                      const Entry & entry ) const;

   QonVlanMappingConfigDir * directory( Direction d ) const;
   VlanMappingLog::Subject subject( IntfId intf, Direction d, Key key, Mapping mapping ) const {
      return { intf, d, key, mapping };
   }

   VlanMappingSm * const sm_;
   bool graceful_ = false;
   bool silent_ = false; // at the start nobody is announced as a winner
   bool holdUp_ = false;
   bool paced_ = false;   // the codef clock let the present questions go
   bool handing_ = false; // somebody ever had something handed over
   U32 version_ = 0;      // that was handed over last
   Kiv::DenseMap< IntfId, std::unique_ptr< Interface > > interfaces_;
   mutable IntfId recentIntf_; // that was looked up last, and is there
   mutable Interface * recent_ = nullptr;
   KeySet< PortVlanKey > delayed_[2]; // additions that wait for the codef clock
   WorkQueue< Question > work_;
};

/** The messages of the first generation. */
extern VlanMappingLog vlanMappingLog;

} // namespace Qon
