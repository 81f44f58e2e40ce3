#pragma once
// Which prefixes, in which VRFs, lead to each forwarding equivalence class (FEC): when its adjacency
// changes they have to be walked again, and their number decides how it is treated.
//
//    route comes or goes --> AdjGlobalPrefixListWrapper --by FEC--> AdjGlobalPrefixList: counts
//                                      |                                 `-> VrfPrefixList by VRF and family
//                                      `-> AdjPrefixCountStatus::notify( list, family )
//
// Invariants
// 1. A prefix counts once in each VRF, however often it is added; the counts of a list are those of
//    its VRF lists, except while a notification of it is under way.
// 2. No VRF list stays empty. The list of a FEC goes with its last VRF list; one that was asked for by
//    adjGlobalPrefixListIs() stays empty until a prefix has come and gone.
// 3. Each change is told once, of a default route as well. Then the counts are those after it. A prefix
//    that comes is not in its VRF list yet; one that goes has left it, and its FEC still has its list.
// 4. notify() may change every FEC but the one that it is told of, which is fatal; and it may drop the
//    last reference to the wrapper. If it raises, the change is made all the same, and the exception passes.
// 5. Removal of what is not there is silent and makes nothing.
//
// Cost: a FEC with one prefix takes one allocation of 64 bytes, and its place in the wrapper's map. A
// change takes two look-ups, for the FEC and the prefix.
//
// Ownership: the wrapper counts its lists. One that somebody else holds stays as it was when its FEC
// went; the FEC starts with a fresh one.

#include "Qon/include/adjacency/AdjPrefixLists.h"
#include "platform/Kiv/Attr.h"
#include "platform/Kiv/ValueKinds.h"

namespace Qon {

using GlobalFecId = Quarn::Fib::GlobalFecId;

/** The prefixes of one FEC, by VRF and family, and how many there are. */
class AdjGlobalPrefixList : public Velto::Node {
 public:
   using Ptr = Velto::Ptr< AdjGlobalPrefixList >;
   using PtrConst = Velto::Ptr< const AdjGlobalPrefixList >;

   explicit AdjGlobalPrefixList( GlobalFecId fecId ) : fecId_( fecId ) {}

   GlobalFecId fecId() const { return fecId_; }
   /** The FEC's number, as its text. */
   Velto::String name() const { return fecId_.stringValue(); }
   /** IPv4 prefixes of all VRFs. */
   U32 v4PrefixCount() const { return v4PrefixCount_; }
   U32 v6PrefixCount() const { return v6PrefixCount_; }
   /** How many of them are 0.0.0.0/0: as many as there are VRFs with it. */
   U16 defaultV4PrefixCount() const { return defaultV4PrefixCount_; }
   U16 defaultV6PrefixCount() const { return lists_.spare(); }

   /** @name Its lists. What is returned holds until a list of this FEC comes or goes. */
   /** @{ */
   bool prefixListHas( AdjPrefixListBaseKey key ) const { return prefixList( key ) != nullptr; }
   const AdjPrefixListBase * prefixList( AdjPrefixListBaseKey key ) const {
      return lists_.find( key );
   }
   const VrfPrefixList * vrfPrefixList( VrfId vrf ) const { return listOf< VrfPrefixList >( vrf ); }
   const VrfPrefix6List * vrfPrefix6List( VrfId vrf ) const {
      return listOf< VrfPrefix6List >( vrf );
   }
   /** The same by the kind of list. */
   template< class List >
   const List * listOf( VrfId vrf ) const;
   U32 prefixLists() const { return lists_.size(); }
   AdjPrefixLists::Walk prefixListIteratorConst() const { return lists_.iterator(); }
   /** @} */

   /** @name The counts as they stand; the wrapper keeps them. */
   /** @{ */
   void v4PrefixCountIs( U32 v ) { v4PrefixCount_ = v; }
   void v6PrefixCountIs( U32 v ) { v6PrefixCount_ = v; }
   void defaultV4PrefixCountIs( U16 v ) { defaultV4PrefixCount_ = v; }
   void defaultV6PrefixCountIs( U16 v ) { lists_.spareIs( v ); }
   /** @} */

   /** What does not hold of the counts; empty if all does. */
   Velto::String checkInvariants() const;

 private:
   friend class AdjGlobalPrefixListWrapper;

   // In an order that leaves no gaps: the first stands at the end of Node.
   U16 defaultV4PrefixCount_ = 0;
   const GlobalFecId fecId_;
   U32 v4PrefixCount_ = 0;
   U32 v6PrefixCount_ = 0;
   AdjPrefixLists lists_;
};

/** Hears of every change of a FEC's counts. */
class AdjPrefixCountStatus : public Velto::Node {
 public:
   class Notification {
      Kiv::Ref< const AdjGlobalPrefixList > adjPrefixList_;
      Ulnet::AddressFamily addressFamily_ = Ulnet::AddressFamily::none;
      KIV_VALUE( Qon::AdjPrefixCountStatus, Notification, adjPrefixList, addressFamily )
   };

   /** Called in the middle of each change, with the family that changed. The base does nothing. */
   virtual void notify( const AdjGlobalPrefixList::PtrConst & adjPrefixList,
                        Ulnet::AddressFamily addressFamily );
};

/** The lists of all FECs. */
class AdjGlobalPrefixListWrapper : public Velto::Node {
   using Lists = Kiv::DenseMap< GlobalFecId, AdjGlobalPrefixList::Ptr >;

 public:
   /** @name The lists by FEC */
   /** @{ */
   bool adjGlobalPrefixListHas( const GlobalFecId & fecId ) const { return lists_.has( fecId ); }
   AdjGlobalPrefixList * adjGlobalPrefixList( const GlobalFecId & fecId ) const {
      auto held = lists_.find( fecId );
      return held ? held->ptr() : nullptr;
   }
   /** The FEC's list; an empty one is made if there is none. */
   AdjGlobalPrefixList::Ptr adjGlobalPrefixListIs( const GlobalFecId & fecId );
   /** Takes the FEC out with all its prefixes; nothing is notified. */
   void adjGlobalPrefixListDel( const GlobalFecId & fecId );
   U32 adjGlobalPrefixLists() const { return lists_.size(); }
   Kiv::Iterator< Lists > adjGlobalPrefixListIteratorConst() const {
      return Kiv::Iterator< Lists >( lists_ );
   }
   /** @} */

   /** @name A route of that VRF with that prefix now uses the FEC, or no longer does.
       `status` hears of what changes; null if nobody does. */
   /** @{ */
   void adjVrfPrefixIs( const GlobalFecId & fecId, VrfId vrfId, const Ulnet::Prefix & prefix,
                        AdjPrefixCountStatus * status ) {
      prefixIs( fecId, vrfId, prefix, status );
   }
   void adjVrfPrefix6Is( const GlobalFecId & fecId, VrfId vrfId, const Ulnet::Ip6Prefix & prefix,
                         AdjPrefixCountStatus * status ) {
      prefixIs( fecId, vrfId, prefix, status );
   }
   void adjVrfPrefixDel( const GlobalFecId & fecId, VrfId vrfId, const Ulnet::Prefix & prefix,
                         AdjPrefixCountStatus * status ) {
      prefixDel( fecId, vrfId, prefix, status );
   }
   void adjVrfPrefix6Del( const GlobalFecId & fecId, VrfId vrfId, const Ulnet::Ip6Prefix & prefix,
                          AdjPrefixCountStatus * status ) {
      prefixDel( fecId, vrfId, prefix, status );
   }
   /** The same for whoever has one body for both families. */
   template< class P >
   void prefixIs( GlobalFecId fecId, VrfId vrfId, P prefix, AdjPrefixCountStatus * status );
   template< class P >
   void prefixDel( GlobalFecId fecId, VrfId vrfId, P prefix, AdjPrefixCountStatus * status );
   /** @} */

   /** What does not hold of the invariants; empty if all does. */
   Velto::String checkInvariants() const;

 private:
   struct Telling;
   /** Ends the list unless its FEC is being told of. */
   void checkQuiet( const AdjGlobalPrefixList & list ) const;
   void tell( const AdjGlobalPrefixList & list, Ulnet::AddressFamily family,
              AdjPrefixCountStatus * status );

   Lists lists_;
   Telling * telling_ = nullptr; // the innermost notification under way
};

} // namespace Qon
