#pragma once
// One hardware adjacency, shared by every forwarding equivalence class (FEC) whose next hops are the
// same, and by which tables of the chip each of them uses it.
//
//    who resolves FECs -> adjEntryIs( fec ), setTableTypeForAdj( fec, type ) -> L2Adjacency
//    L2Adjacency -> watchers: the installer of a chip -> hwStateIs( outcome ), setL2AdjAckInfo( fec )
//
//    one FEC, as nearly always      several, or when asked for
//    adjEntry: in the object        adjEntry: hash set
//    types: 16 bits in the object   types: L2AdjTableType, by FEC, and how many FECs use each type
//
// Invariants
// 1. Types belong to a FEC. Kept in the object, they are those of the only FEC in adjEntry; then
//    there is no L2AdjTableType. The first becomes the second when another FEC joins and there are
//    types, when a type is set for one of several FECs, or by l2AdjTableTypeIs(); never back.
// 2. A FEC has types only while it is in adjEntry, or the proxied adjacency holds it. Whoever holds it
//    neither way loses them; who joins afresh starts without.
// 3. In L2AdjTableType the count of a type is the number of FECs that have it; none is 0, and no FEC
//    has an empty set.
// 4. What few adjacencies have (l2AdjData) takes no room before it is first written.
// 5. hwState: ecmpGroupsFull stands alone; notReady accompanies installed.
//
// Ownership: counted. It holds its data, its L2AdjTableType and the proxied adjacency. A watcher may
// end it; operations that go on after they published hold it meanwhile.

#include "Qon/include/adjacency/L2AdjValues.h"
#include "platform/Kiv/HybridSet.h"

namespace Qon {

using GlobalFecId = Quarn::Fib::GlobalFecId;

/** The tables of a chip that refer to adjacencies; at most 16. */
enum class TableType : U8 {
   unicast = 0,
   multicast = 1,
   mpls = 2,
   urpf = 3,
   nexthopGroup = 4,
   vxlan = 5,
   policy = 6,
};
KIV_ENUM( TableType, unicast, multicast, mpls, urpf, nexthopGroup, vxlan, policy )

/** A set of them. */
class TableTypeBoolSet {
   KIV_BITS( Qon, TableTypeBoolSet, U16, unicast, multicast, mpls, urpf, nexthopGroup, vxlan,
             policy )

   constexpr explicit TableTypeBoolSet( TableType type ) : TableTypeBoolSet( Bit( type ) ) {}
   constexpr bool has( TableType type ) const { return bool( *this & TableTypeBoolSet( type ) ); }
   U32 size() const;
};

/** What became of the installation: nothing yet (no flag), done, failed, done but not usable yet, or
    put off since the chip has no room for another group. */
class L2AdjHardwareState {
   KIV_BITS( Qon, L2AdjHardwareState, U8, installed, installFailed, notReady, ecmpGroupsFull )
};

/** What becomes of traffic; the later ones prevail. */
enum class L2AdjForwardingState : U8 {
   l2AdjFwdingUnset,
   l2AdjFwdingUnknown,
   l2AdjFwdingOk,
   l2AdjFwdingDrop,
};
KIV_ENUM( L2AdjForwardingState, l2AdjFwdingUnset, l2AdjFwdingUnknown, l2AdjFwdingOk,
          l2AdjFwdingDrop )

/** What is to be expected of two that traffic goes through. */
L2AdjForwardingState combineExpectedL2AdjForwardingStates( L2AdjForwardingState a,
                                                           L2AdjForwardingState b );

/** The adjacency of which another one is a copy, such as one level of a hierarchy taken apart. */
class ProxiedAdj : public Kiv::Entity {
   KIV_BODY( ProxiedAdj, Kiv::Entity )
   KIV_SET( GlobalFecId, proxiedAdjEntry )
   KIV_ATTR( bool, potentialEcmp, false )
   KIV_ATTR( bool, potentialHasBackup, false )
   KIV_ATTR( bool, potentialHierarchicalNextHop, false )
 public:
   explicit ProxiedAdj( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** The table types of one adjacency by FEC, and the number of FECs by type. Each change is made of
    both before either is published. */
class L2AdjTableType : public Kiv::Entity {
   KIV_BODY( L2AdjTableType, Kiv::Entity )
   KIV_MAP( GlobalFecId, TableTypeBoolSet, adjEntryAndTableType )
   KIV_MAP( TableType, U32, adjTableType )
 public:
   explicit L2AdjTableType( const Velto::String & name ) : Kiv::Entity( name ) {}

   /** Setting twice counts once. */
   void setTableTypeForAdj( const GlobalFecId & fecId, TableType type );
   /** Nothing if it is not set. */
   void unsetTableTypeForAdj( const GlobalFecId & fecId, TableType type );
   /** The adjacency's FEC came or went; one that nobody `holds` any more loses its types. */
   void handleAdjEntry( const GlobalFecId & fecId, bool holds );
   /** The types that have a count. */
   TableTypeBoolSet adjTableTypeBoolSet() const;

 private:
   void release( const GlobalFecId & fecId, TableTypeBoolSet types );
   void decrementTableTypeInternal( TableType type );
   void publish( const GlobalFecId & fecId, TableTypeBoolSet changed );
};

/** What only few adjacencies have. */
class L2AdjacencyData {
   L2AdjAckInfo ackInfo_;
   Kiv::Ref< ProxiedAdj > proxiedAdj_;
   std::optional< NextHop > backupVia_;
   Kiv::Ref< L2AdjTableType > l2AdjTableType_;
   QonPdVersionId lastAckedPdVersionId_;
   KIV_VALUE( Qon, L2AdjacencyData, ackInfo, proxiedAdj, backupVia, l2AdjTableType,
              lastAckedPdVersionId )
};

class L2Adjacency : public Kiv::Entity {
   KIV_BODY( L2Adjacency, Kiv::Entity )
   KIV_HYBRID_SET( GlobalFecId, adjEntry, handleAdjEntry )
   KIV_DECLARE( hwState, void, L2AdjHardwareState,
                template scalar< KivT, L2AdjHardwareState, &KivT::hwState_, &KivT::hwStateIs >(
                      "hwState" ) )
   KIV_ATTR( L2AdjForwardingState, forwardingState, L2AdjForwardingState::l2AdjFwdingUnset )
   KIV_ATTR( U32, configRefCount, 0 )

 public:
   explicit L2Adjacency( const L2AdjKey & l2AdjKey );
   ~L2Adjacency() override;
   const L2AdjKey & l2AdjKey() const { return l2AdjKey_; }

   /** @name Table types */
   /** @{ */
   /** The first type of a FEC that is no member makes it one. Once there is a L2AdjTableType, a FEC
       that is no member, nor the proxied adjacency's, is fatal. */
   void setTableTypeForAdj( const GlobalFecId & fecId, TableType type );
   void unsetTableTypeForAdj( const AdjEntry & adjEntry, TableType type );
   bool isTableTypeSetForAdj( const GlobalFecId & fecId, TableType type ) const;
   /** How many types are in use. */
   U32 adjTableTypes() const;
   bool adjTableTypeHas( TableType type ) const { return adjTableTypeBoolSet().has( type ); }
   /** All that any of the FECs uses. */
   TableTypeBoolSet adjTableTypeBoolSet() const;
   /** `fecId` joined or left adjEntry; called before those who watch hear of it. Nothing to do if
       called again. */
   void handleAdjEntry( const GlobalFecId & fecId );
   /** @} */

   /** @name Installation */
   /** @{ */
   L2AdjHardwareState hwState() const { return hwState_; }
   /** Publishes a state that is another one; a combination that cannot be is fatal. */
   void hwStateIs( L2AdjHardwareState state );
   void validateHwState( L2AdjHardwareState state ) const;
   /** The version of that FEC that was last reviewed has been acknowledged. */
   void setL2AdjAckInfo( const AdjEntry & adjEntry );
   /** Adds, and returns the new count; it wraps. */
   U32 configRefCountInc( U32 n );
   U32 configRefCountDec( U32 n );
   /** @} */

   /** @name Data that few have. Reading takes no room. */
   /** @{ */
   const L2AdjacencyData & l2AdjData() const;
   bool hasL2AdjData() const { return data_ != nullptr; }
   ProxiedAdj * proxiedAdj() const { return l2AdjData().proxiedAdj().ptr(); }
   L2AdjTableType * l2AdjTableType() const { return l2AdjData().l2AdjTableType().ptr(); }
   void ackInfoIs( const L2AdjAckInfo & v );
   /** FECs that only the former one held lose their types. */
   void proxiedAdjIs( const Velto::Ptr< ProxiedAdj > & v );
   void backupViaIs( const std::optional< NextHop > & v );
   void lastAckedPdVersionIdIs( QonPdVersionId v );
   /** The table types by FEC, from now on and for good. */
   Velto::Ptr< L2AdjTableType > l2AdjTableTypeIs();
   /** @} */

   /** @name What may be expected of it */
   /** @{ */
   /** With the feature QonLeanFaEcmpStickiness, what potentialEcmpIs() said; without, whether this
       adjacency or the proxied one has several next hops. */
   bool potentialEcmp() const;
   bool potentialHasBackup() const;
   bool potentialHierarchicalNextHop() const;
   bool hasAllocationIds() const { return l2AdjKey_.nextHopCollection().hasAllocationIds(); }
   /** Once true, it stays. */
   void potentialEcmpIs( bool v ) { potentialEcmp_ |= v; }
   void potentialHasBackupIs( bool v ) { potentialHasBackup_ = v; }
   void potentialHierarchicalNextHopIs( bool v ) { potentialHierarchicalNextHop_ = v; }
   /** @} */

   /** What does not hold of the invariants; empty if all do. */
   Velto::String checkInvariants() const;

 private:
   struct Data;

   L2AdjacencyData & dataMut();
   bool holds( const GlobalFecId & fecId ) const;
   Velto::Ptr< L2AdjTableType > promote( const GlobalFecId * owner );
   void handleProxiedAdjEntry( const GlobalFecId & fecId );
   void releaseStrangers();

   const L2AdjKey l2AdjKey_;
   std::unique_ptr< Data > data_;
   TableTypeBoolSet inlineTypes_;
   L2AdjHardwareState hwState_;
   bool potentialEcmp_ = false;
   bool potentialHasBackup_ = false;
   bool potentialHierarchicalNextHop_ = false;
};

} // namespace Qon
