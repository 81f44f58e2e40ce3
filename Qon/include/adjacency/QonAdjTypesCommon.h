#pragma once
// What adjacencies of all kinds have in common: the encapsulation of a next hop, why an adjacency
// cannot be installed, and why it is looked at again.
//
//    EncapInfo -> wrapper (one encapsulation, counted) <- other EncapInfos that are equal
//                     ^
//                 EncapDedupTable, while anybody holds it
//
// Invariants
// 1. An EncapInfo holds one encapsulation, or none. Its kind is its wrapper's, for good: a value of a
//    kind begins with that kind's factory. Reading or writing another kind is fatal.
// 2. A wrapper that is shared, or in a table, is copied (or taken out) before it is written: no write
//    is seen through another EncapInfo.
// 3. Errors are transient unless one of them is invalidRouteType, fecHierarchyContainsCycle,
//    expandedL2AdjHasFailedChildren or lowerLevelL2AdjInstallFailed.

#include "platform/KivStash/DedupHandle.h"
#include "platform/types/Encap.h"

namespace Qon {

using Velto::String;

class IpsecTunnelInfo {
   Ulnet::IpGenAddr src_;
   Ulnet::IpGenAddr dst_;
   U32 spi_ = 0;
   KIV_VALUE( Qon, IpsecTunnelInfo, src, dst, spi )
};

class VxlanEncapInfo {
   U32 vni_ = 0;
   Ulnet::IpGenAddr vtepAddr_;
   Ulnet::IpGenAddr srcVtep_;
   Ulnet::EthAddr bridgeMac_;
   KIV_VALUE( Qon, VxlanEncapInfo, vni, vtepAddr, srcVtep, bridgeMac )
};

class IpInIpEncapInfo {
   Ulnet::IpGenAddr src_;
   Ulnet::IpGenAddr dst_;
   U8 tos_ = 0;
   U8 ttl_ = 0;
   KIV_VALUE( Qon, IpInIpEncapInfo, src, dst, tos, ttl )
};

class Srv6TunnelEncapInfo {
   Ulnet::IpGenAddr src_;
   Kiv::ValueList< Srv6::GenSid > segments_;
   KIV_VALUE( Qon, Srv6TunnelEncapInfo, src, segments )
};

/** One encapsulation. What it holds is EncapInfo's business. */
class EncapWrapper : public KivStash::Dedupable< EncapWrapper > {
 public:
   using Content = EncapWrapper;
   using Type = Tunnel::TunnelTable::Type;

   const EncapWrapper & dedupContent() const { return *this; }
   Type type() const { return type_; }
   virtual U64 hash() const = 0;
   virtual Velto::Ptr< EncapWrapper > copy() const = 0;
   /** Of wrappers of any kind; by the kind first. */
   std::strong_ordering compare( const EncapWrapper & other ) const;
   bool operator==( const EncapWrapper & other ) const { return compare( other ) == 0; }

 protected:
   explicit EncapWrapper( Type type ) : type_( type ) {}

 private:
   virtual std::strong_ordering comparePayload( const EncapWrapper & sameKind ) const = 0;
   const Type type_;
};

using EncapDedupTable = KivStash::DedupSet< EncapWrapper >;

// Each kind: name in the text, accessor, payload, its type in the tunnel table, wrapper factory. In
// the order of the text.
#define QON_ENCAPS( m )                                                                            \
   m( labels, labels, Ulnet::MplsLabelOperation, mplsEncap, mplsWrapperFactory )                   \
         m( greEncap, greEncap, Tunnel::GreTunnelInfo, greEncap, greWrapperFactory )               \
               m( ipsecEncap, ipsecEncap, IpsecTunnelInfo, ipSecEncap, ipSecWrapperFactory )       \
                     m( vxlanEncap, vxlanEncap, VxlanEncapInfo, vxlanEncap, vxlanWrapperFactory )  \
                           m( ipInIpEncap, ipInIpEncap, IpInIpEncapInfo, ipInIpEncap,              \
                              ipInIpWrapperFactory ) m( srv6TunnelEncap, srv6TunnelEncap,          \
                                                        Srv6TunnelEncapInfo, srv6TunnelEncap,      \
                                                        srv6TunnelWrapperFactory )                 \
                                 m( srv6SidEncap, srv6SidEncap, Srv6::GenSid, srv6SidEncap,        \
                                    srv6SidWrapperFactory )                                        \
                                       m( dsfEncap, dsfTunnelEncap, Tunnel::DsfTunnelInfo,         \
                                          dsfEncap, dsfTunnelWrapperFactory )                      \
                                             m( gueEncap, gueTunnelEncap, Tunnel::GueTunnelInfo,   \
                                                gueEncap, gueTunnelWrapperFactory )

/** The encapsulation of a next hop. */
class EncapInfo {
 public:
   using Type = Tunnel::TunnelTable::Type;

   /** No encapsulation. */
   EncapInfo() = default;
   /** `EncapInfo( EncapInfo::greWrapperFactory() )`: an empty GRE encapsulation. */
   explicit EncapInfo( Velto::Ptr< EncapWrapper > wrapper ) : wrapper_( std::move( wrapper ) ) {}
   /** Of the text that stringValue() gives. The text does not name the kind: it is that of the one
       part that is not empty. */
   explicit EncapInfo( const String & text );

   Type encapType() const { return wrapper_ ? wrapper_->type() : Type::none; }

   // x() and xIs( payload ) of each kind: labels, greEncap, ipsecEncap, vxlanEncap, ipInIpEncap,
   // srv6TunnelEncap, srv6SidEncap, gueTunnelEncap, dsfTunnelEncap. Fatal on a value of another kind.
   // And its factory of an empty wrapper.
#define QON_ENCAP_ACCESS_( text, x, Payload, kind, factory )                                       \
   const Payload & x() const;                                                                      \
   void x##Is( const Payload & payload );                                                          \
   static Velto::Ptr< EncapWrapper > factory();
   QON_ENCAPS( QON_ENCAP_ACCESS_ )
#undef QON_ENCAP_ACCESS_

   /** Shares the wrapper with all equal ones that the table has seen. */
   void dedup( const EncapDedupTable & table );
   /** How many share the wrapper, and where it is; for whoever counts memory. */
   const EncapWrapper * wrapper() const {
      return wrapper_.ptr();
   }

   bool operator==( const EncapInfo & other ) const {
      return ( *this <=> other ) == 0;
   }
   std::strong_ordering operator<=>( const EncapInfo & other ) const;
   bool isEq( const EncapInfo & other ) const {
      return *this == other;
   }
   U64 hash() const;
   String stringValue() const;

 private:
   void maybeCopyWrapper();
   void checkType( Type wanted, int line, const char * function ) const;

   Velto::Ptr< EncapWrapper > wrapper_;
};

/** Why an adjacency is not, or not wholly, installed. */
class AdjErrorStates {
   KIV_BITS( Qon, AdjErrorStates, U16, uninitialized, invalidRouteType, fecMissingFromFib,
             fecHierarchyContainsCycle, nextLevelFecInvalid, vxlanTunnelsNotReconciled,
             sourceFecInvalid, nextLevelInfoMissing, expandedL2AdjHasFailedChildren,
             lowerLevelL2AdjInstallFailed )
};

/** Whether a later attempt may cure `states`: none of them is permanent. True of no error. */
bool isAdjErrorStateTransient( AdjErrorStates states );

/** Why an adjacency is evaluated again. */
class AdjUpdateType {
   KIV_BITS( Qon, AdjUpdateType, U16, linkDownFullAdjUpdate, highPriorityPrevLevelAdjUpdate,
             contentChangeAdjUpdate, forcedAdjUpdate, regularAdjUpdate, refChangeAdjUpdate,
             l3IntfAdjUpdate, tableTypeChangeAdjUpdate, ecmpGroupsFullAdjUpdate, linkUpAdjUpdate,
             forcePrefixWalkAdjUpdate, prevLevelAdjWalkAdjUpdate, preSyncAdjUpdate,
             syncReconstructionAdjUpdate, syncCompletionAdjUpdate, lowPriorityAdjUpdate )
};

/** What an evaluation walks over afterwards. */
class AdjWalkType {
   KIV_BITS( Qon, AdjWalkType, U8, prefixWalk, adjDeferralOnlyPrefixWalk, prevLevelL2AdjReEvalWalk,
             prevLevelL2AdjReInstallWalk )
};

} // namespace Qon
