#pragma once
// Values that travel between those who build adjacencies, those who install them, and those who look
// at them.

#include "Qon/include/adjacency/L2AdjKey.h"
#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Time.h"
#include "platform/types/Routing.h"

namespace Qon {

/** The version of a class that hardware acknowledged for an adjacency. */
class L2AdjAckInfo {
   Quarn::Fib::FecId fibFecId_;
   Routing::Fib::FecVersionId fibVersionId_;
   KIV_VALUE( Qon, L2AdjAckInfo, fibFecId, fibVersionId )
};

class L2AdjStats {
   Kiv::Seconds insertTime_ = 0;
   Kiv::Seconds lastUpdateTime_ = 0;
   U32 numUpdates_ = 0;
   KIV_VALUE( Qon, L2AdjStats, insertTime, lastUpdateTime, numUpdates )
};

class AdjStats {
   Kiv::Seconds insertTime_ = 0;
   Kiv::Seconds lastUpdateTime_ = 0;
   U32 numUpdates_ = 0;
   KIV_VALUE( Qon, AdjStats, insertTime, lastUpdateTime, numUpdates )
};

/** Who refers to an adjacency. */
class L2AdjRefUser {
   bool l2AdjHelper_ = false;
   bool l2AdjInstaller_ = false;
   KIV_VALUE( Qon, L2AdjRefUser, l2AdjHelper, l2AdjInstaller )
};

/** Why an adjacency has to be installed. */
class L2AdjInstallRefSummary {
   bool platformConfig_ = false;
   bool l3Reference_ = false;
   KIV_VALUE( Qon, L2AdjInstallRefSummary, platformConfig, l3Reference )
};

class L2AdjExportRequestKey {
   L2AdjKey l2AdjKey_;
   bool add_ = false;
   KIV_VALUE( Qon, L2AdjExportRequestKey, l2AdjKey, add )
};

/** One adjacency in a comparison of two sides. */
class AdjSyncHashEntry {
   L2AdjKey key_;
   U32 syncHash_ = 0;
   Quarn::Fib::GlobalFecId nextLevelAdjId_;
   KIV_VALUE( Qon, AdjSyncHashEntry, key, syncHash, nextLevelAdjId )
};

enum class NextHopGroupType : U8 { nhgUnset, nhgIp, nhgMpls, nhgGre, nhgIpInIp, nhgMplsOverGre };
KIV_ENUM( NextHopGroupType, nhgUnset, nhgIp, nhgMpls, nhgGre, nhgIpInIp, nhgMplsOverGre )

/** What an adjacency by way of a next-hop group takes from the group. */
class AdjViaNextHopGroupInfo {
   NexthopGroupEntryCounterType nexthopGroupEntryCounterType_ =
         NexthopGroupEntryCounterType::counterNone; // fixed text: the lower h
   NextHopGroupType nextHopGroupType_ = NextHopGroupType::nhgUnset;
   bool dlbEcmpEnable_ = false;
   bool nextHopGroupAutoSized_ = false;
   U64 configuredVersion_ = 0;
   U32 nextHopGroupSize_ = 0;
   U32 ttl_ = 0;
   U8 tos_ = 0;
   PlatformApi::GreKeyType greKeyType_ = PlatformApi::GreKeyType::greKeyUnset;
   U64 sbfdSessionTunnelId_ = 0;
   KIV_VALUE( Qon, AdjViaNextHopGroupInfo, nexthopGroupEntryCounterType, nextHopGroupType,
              dlbEcmpEnable, nextHopGroupAutoSized, configuredVersion, nextHopGroupSize, ttl, tos,
              greKeyType, sbfdSessionTunnelId )
};

/** The VXLAN tunnel that a class leads into. */
class AdjVxlanTunnelInfo : public Kiv::Entity {
   KIV_BODY( AdjVxlanTunnelInfo, Kiv::Entity )
   KIV_ATTR( VxlanEncapInfo, vxlanEncap )
 public:
   explicit AdjVxlanTunnelInfo( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** The tunnel interface that a class leads out of. */
class AdjTunnelIntfInfo : public Kiv::Entity {
   KIV_BODY( AdjTunnelIntfInfo, Kiv::Entity )
   KIV_ATTR( Ulnet::IntfId, intfId )
   KIV_ATTR( EncapInfo, encapInfo )
 public:
   explicit AdjTunnelIntfInfo( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What is known of one class besides its next hops. */
class AdjEntryData {
   Quarn::Fib::FecId fibFecId_;
   Routing::Fib::FecVersionId lastReviewedPiVersionId_;
   Routing::Fib::FecVersionId lastAckedPiVersionId_;
   Kiv::Ref< AdjVxlanTunnelInfo > adjVxlanTunnelInfo_;
   Kiv::Ref< AdjTunnelIntfInfo > adjTunnelIntfInfo_;
   Kiv::ValueMap< Ulnet::IntfId, U32 >
         adjToBfdIntfCount_;                    // how many of its vias follow the session
   Kiv::ValueMap< U64, U32 > adjToSbfdSession_; // session, by tunnel
   KIV_VALUE( Qon, AdjEntryData, fibFecId, lastReviewedPiVersionId, lastAckedPiVersionId,
              adjVxlanTunnelInfo, adjTunnelIntfInfo, adjToBfdIntfCount, adjToSbfdSession )
};

/** A forwarding equivalence class, as those who build adjacencies see it. */
class AdjEntry : public Kiv::Entity {
   KIV_BODY( AdjEntry, Kiv::Entity )
   KIV_ATTR( AdjEntryData, adjEntryData )
 public:
   explicit AdjEntry( Quarn::Fib::GlobalFecId globalFecId ) : globalFecId_( globalFecId ) {}
   Quarn::Fib::GlobalFecId globalFecId() const { return globalFecId_; }
   Quarn::Fib::FecId fibFecId() const { return adjEntryData_.fibFecId(); }
   Routing::Fib::FecVersionId lastReviewedPiVersionId() const {
      return adjEntryData_.lastReviewedPiVersionId();
   }

 private:
   const Quarn::Fib::GlobalFecId globalFecId_;
};

} // namespace Qon
