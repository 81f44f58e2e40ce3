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
   /** Entries by key. It remembers where it found the last one, or that there is none: a question asks
       for one key many times. */
   class Entries {
    public:
      Entry * find( Key key ) {
         if ( !known_ || !( recentKey_ == key ) ) {
            recentKey_ = key;
            recent_ = table_.find( key );
            known_ = true;
         }
         return recent_;
      }
      /** Makes it if there is none. */
      Entry & at( Key key ) {
         if ( !find( key ) ) {
            recent_ = table_.emplace( key ).first;
         }
         return *recent_;
      }
      void erase( Key key ) {
         known_ = false; // others may move
         table_.erase( key );
      }
      bool empty() const { return table_.empty(); }
      auto begin() { return table_.begin(); }
      auto end() { return table_.end(); }

    private:
      Kiv::DenseMap< Key, Entry > table_;
      Key recentKey_;
      bool known_ = false;
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
      U16 native[2] = {};         // the VLAN whose key was asked or added last
      Kiv::DenseMap< Claim, Mapping > givenUp;
      Kiv::DenseMap< Claim, Mapping > reported; // as conflicts

      U32 pins = 0; // somebody works on it

      bool empty() const;
      /** Something of wishes that may have changed since. */
      bool remembers() const { return !givenUp.empty() || !reported.empty(); }
   };

   /** A key of a configured interface: what is being looked at. The interface stays as long. */
   struct Place {
      IntfId intf;
      Interface & of;
      Direction direction;
      Key key;

      /** Makes it if there is none. Hooks and watchers may take it away. */
      Entry & entry() const { return of.entries[U8( direction )].at( key ); }
      bool lag() const { return Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ); }
   };

   explicit VlanTranslations( VlanMappingSm * sm ) : sm_( sm ) {}

   /** @name Inputs */
   /** @{ */
   /** Null: the source wants nothing of the interface any more, and begins afresh. */
   void inputIs( IntfId intf, Source source, Velto::Ptr< const Config > config );
   /** The native VLAN changed: both keys that it is about. */
   void askNative( IntfId intf, Direction d );
   void askKey( IntfId intf, Direction d, Key key, Source apply = Source::None );
   /** The source wants something else under the key: askKey() and settle() in one. False if what it
       wants cannot be, or it wants nothing. */
   bool wishChanged( IntfId intf, Direction d, Key key, Source source );
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
   /** What is said of keys and is not so, as an earlier life said it, goes. */
   void reviewOutputs();
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
   void ask( const Question & question ) {
      forgetWishes();
      work_.add( question );
   }
   void answer( const Question & question );

   /** Makes it if there is none. */
   Interface & at( IntfId intf ) { return find( intf ) ? *recent_ : make( intf ); }
   Interface & make( IntfId intf );
   const Interface * find( IntfId intf ) const {
      return recent_ && recentIntf_ == intf ? recent_ : look( intf );
   }
   const Interface * look( IntfId intf ) const;
   const Entry * find( IntfId intf, Direction d, Key key ) const {
      auto i = find( intf );
      return i ? i->entries[U8( d )].find( key ) : nullptr;
   }
   Entry & entry( IntfId intf, Direction d, Key key ) {
      return at( intf ).entries[U8( d )].at( key );
   }
   Place place( IntfId intf, Direction d, Key key ) { return { intf, at( intf ), d, key }; }
   /** What `port`, to which the interface leads, holds. */
   Entry & held( const Place & p, IntfId port ) {
      return port == p.intf ? p.entry() : entry( port, p.direction, p.key );
   }
   void dropIfEmpty( IntfId intf );
   /** The ports that the interface leads to now. */
   static std::span< const IntfId > targets( const Place & p, bool inLag ) {
      return targets( p.intf, p.of, inLag );
   }
   static std::span< const IntfId > targets( const IntfId & intf, const Interface & i, bool inLag );
   std::optional< Mapping > wish( const Interface & i, Direction d, Key key, Source source ) const;
   /** The same, read once a review unless something is asked meanwhile. */
   const std::optional< Mapping > & knownWish( const Place & p, Source source ) const {
      Wish & known = wishes_[U8( source )];
      if ( known.of != &p.of || known.direction != p.direction || !( known.key == p.key ) ) {
         known.mapping = wish( p.of, p.direction, p.key, source );
         known.of = &p.of;
         known.direction = p.direction;
         known.key = p.key;
      }
      return known.mapping;
   }
   void forgetWishes() { wishes_[0].of = wishes_[1].of = nullptr; }
   IntfId rulerOf( IntfId port ) const;

   static bool owned( Interface & i, Direction d, Key key );
   void reviewKey( const Place & p, Source apply );
   void settleOwner( const Place & p, Source apply );
   Source nextOwner( const Place & p, Source former ) const;
   Status claim( const Place & p, Mapping mapping, bool inLag, Source source );
   void reportConflicts( const Place & p, Source owner );
   void reportConflict( const Place & p, Source source, Mapping wanted );
   void conclude( const Place & p );
   void reviewPort( IntfId port );
   void clearPort( IntfId port, IntfId ruler );
   void sweep( IntfId port, Direction d, Key key );
   void reviewStatus( IntfId port, Direction d, Key key );

   Status program( const Place & p, bool inLag, Source apply );
   Status programPort( const Place & p, IntfId port, bool inLag, Source apply );
   Status handOver( const Place & p, IntfId port, Entry & held );
   void took( const Place & p, IntfId port, Status status );
   void giveUp( const Place & p, Status why );
   void withdraw( const Place & p );
   void removePort( const Place & p, IntfId port );
   void announce( const Place & p );

   void publishPort( const Place & p, IntfId port );
   void publishKeySet( IntfId port, Key key );
   void publishMember( IntfId lag, IntfId port, Direction d, const Key & key );
   void unpublishMember( IntfId lag, IntfId port );
   void reviewKeySets();
   void reviewMembers();
   void reviewEncap( IntfId intf );

   void restore( Direction d, const PortVlanKey & key, const QonVlanMappingConfig & config );
   void adoptRuler( IntfId port );
   Source restoredOwner( const PortVlanKey & key, const QonVlanMappingConfig & config ) const;
   String checkInterface( IntfId intf, const Interface & i ) const;
   String checkEntry( IntfId intf, const Interface & i, Direction d, Key key,
                      const Entry & entry ) const;

   QonVlanMappingConfigDir * directory( Direction d ) const;
   static VlanMappingLog::Subject subject( const Place & p, Mapping mapping ) {
      return { p.intf, p.direction, p.key, mapping };
   }

   /** What a source wants under a key, as read last. Any question that comes in may be about another
       wish: then all is read anew. */
   struct Wish {
      const Interface * of = nullptr;
      Direction direction;
      Key key;
      std::optional< Mapping > mapping;
   };

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
   mutable Wish wishes_[2];           // of each source
   KeySet< PortVlanKey > delayed_[2]; // additions that wait for the codef clock
   WorkQueue< Question > work_;
};

/** The messages of the first generation. */
extern VlanMappingLog vlanMappingLog;

} // namespace Qon
