#pragma once
// The access lists of the chip in software: instances by their numbers, the interfaces that each is
// applied to, and the interfaces that are blocked.
//
//    hook object -> prepare( acl ): at once or later: room for its rules -> Hook::answered()
//                -> use( acl, where, on ), commit( acl ): it decides
//                -> uninstall( acl ): at once or later: gone with its interfaces
//                -> block( intf, on ): at once or later, in order -> Hook::blockAnswered()
//
// Invariants
// 1. A number stands for one instance of a helper. What would break that, or what comes in a wrong
//    order, is refused and remembered as misuse().
// 2. Each unit that is there holds every instance. All rules together take no more than `entries` of a
//    unit; what does not fit is hwResourceFull. An instance that one unit refuses decides on no unit.
//    A unit that comes back gets what is there again, and says what it refuses then.
// 3. What a former helper left decides until sweep().

#include <functional>
#include <map>

#include "agent/softchip/AclMatch.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "chip/AclPart.h"
#include "platform/Kiv/Fifo.h"

namespace SoftChip {

struct AclLimits {
   U32 entries = 65536;     ///< rules of a unit, of all instances together
   U32 units = 2;           ///< "Chip0" and up
   bool async = false;      ///< uninstalling and preparing are answered later
   bool asyncBlock = false; ///< blocking is; always with `async`
   bool raclSharing = true; ///< routed ports can share an instance
   bool icmpv6Rules = true;
   bool egressLogging = false;
   bool perHost = true;   ///< single hosts can have lists
   bool deferred = false; ///< interfaces join and leave instances with the next pass
};

class AclTable {
 public:
   class Hook {
    public:
      virtual void answered( const Qon::AclOperation & acl,
                             const Qon::AclUnitResults & results ) = 0;
      virtual void blockAnswered( Ulnet::IntfId intf, bool blocked ) = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   AclTable( FaultPlan & plan, const AclLimits & limits ) : plan_( plan ), limits_( limits ) {
      plan.hookIs( "prepareAcl" );
      plan.hookIs( "commitAcl" );
      plan.tableIs( "aclEntries" );
      plan.unitsHeardBy( [this]( const String & unit ) { unitChanged( unit ); } );
   }

   Hearer< Hook > hook;
   /** Called after each change of what decides on traffic, in the middle of whoever makes it. */
   void changeHeardBy( std::function< void() > hearer ) { changed_ = std::move( hearer ); }

   const AclLimits & limits() const { return limits_; }
   void limitsAre( const AclLimits & limits ) { limits_ = limits; }
   /** When operations, and when blocks, are done on an asynchronous chip. */
   Completions & completions() { return completions_; }
   Completions & blockCompletions() { return blockCompletions_; }

   /** A new helper begins: what there is becomes stale. */
   void begin() { ++generation_; }
   void sweep();

   Qon::AclUnitResults prepare( const Qon::AclOperation & acl );
   void uninstall( const Qon::AclOperation & acl );
   void use( const Qon::AclOperation & acl, const Qon::AclIntfUse & where, bool on );
   Qon::AclUnitResults commit( const Qon::AclOperation & acl );
   void block( Ulnet::IntfId intf, bool on );
   void readCounters() { ++counterReads_; }

   QonChip::HeldAcls held() const;
   std::vector< QonChip::AclUnit > units() const;
   /** An instance that was asked, and its rule that decided. */
   struct Asked {
      const Qon::AclOperation * acl;
      const Qon::AclRule * rule;
      bool permits() const { return rule->rule.action() == Acl::RuleAction::permit; }
   };
   /** Those that are asked about a packet which passes an interface that is not blocked; in their order,
       up to the first that denies. */
   std::vector< Asked > asked( Ulnet::IntfId intf, Ulnet::IntfId member,
                               Acl::AclDirection direction, const AclPacket & packet ) const;
   /** See QonChip::AclPart. */
   QonChip::AclDecision lookup( Ulnet::IntfId intf, Ulnet::IntfId member,
                                Acl::AclDirection direction, const AclPacket & packet ) const;
   /** Whether no traffic passes the interface. */
   bool blocked( Ulnet::IntfId intf ) const;
   /** The instances of the type that decide on what passes there. */
   std::vector< const Qon::AclOperation * >
   deciders( Acl::AclType type, Acl::AclDirection direction, const Qon::AclIntfUse & use ) const;
   /** How many times a unit has refused an instance. */
   U32 refusals() const { return refusals_; }
   U32 entriesUsed() const;
   U32 counterReads() const { return counterReads_; }
   /** The first call that a chip could not have carried out; empty if there was none. */
   const String & misuse() const { return misuse_; }

 private:
   struct Place {
      U32 generation;
      U32 number;
      auto operator<=>( const Place & ) const = default;
   };
   struct Entry {
      Qon::AclOperation acl;
      bool prepared = false;
      bool committed = false;
      std::set< Qon::AclIntfUse > uses;
      std::map< String, Qon::AclCreateError > refused; // by units that came back
   };
   void changed() const {
      if ( changed_ ) {
         changed_();
      }
   }
   Entry * entryOf( const Qon::AclOperation & acl );
   void wrong( const Qon::AclOperation & acl, const char * what );
   void blockNext();
   Qon::AclUnitResults prepareNow( const Place & place );
   Qon::AclUnitResults everywhere( Qon::AclCreateError error ) const;
   bool anyUnit() const;
   void unitChanged( const String & unit );
   String unitName( U32 unit ) const { return "Chip" + std::to_string( unit ); }

   FaultPlan & plan_;
   std::function< void() > changed_;
   AclLimits limits_;
   Completions completions_, blockCompletions_;
   U32 generation_ = 0, oldest_ = 0; // whose requests are carried out
   std::map< Place, Entry > entries_;
   std::set< std::pair< U32, Ulnet::IntfId > > blocked_; // by generation
   struct Request {
      Ulnet::IntfId intf;
      bool on;
      U32 generation;
      Hearer< Hook >::Ticket ticket;
   };
   Kiv::Fifo< Request > requests_; // to block: done in their order
   U32 counterReads_ = 0;
   U32 refusals_ = 0;
   String misuse_;
};

} // namespace SoftChip
