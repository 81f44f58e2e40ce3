#pragma once
// Link aggregation towards the hardware: what groups the chip shall hold, what it holds, and what
// the configuration of all physical interfaces adds up to.
//
//    FapIdPortDir (port -> hardware port) ---.
//    library: Hardware::Lag::Config  --------+--> chip
//    library: merged state <-- Hardware::Lag::Status <-- chip (one a slice)
//
// Invariants
// 1. A port is an own member (not `shared`) of one group at most, at any moment.
// 2. A group without members has no entry in Config.

#include "platform/Kiv/Attr.h"
#include "platform/types/FapIdPort.h"
#include "platform/types/Interface.h"

namespace Hardware {

/** The hardware port of each physical interface that the hardware knows. */
class FapIdPortDir : public Kiv::Entity {
   KIV_BODY( FapIdPortDir, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Qon::FapIdPort, fapIdPort )
 public:
   explicit FapIdPortDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

namespace Lag {

/** A member as the chip shall hold it. `shared`: lent by the peer link, whose own member it is. */
class Member {
   Qon::FapIdPort port_;
   bool collecting_ = false;
   bool distributing_ = false;
   bool shared_ = false;
   KIV_VALUE( Hardware::Lag, Member, port, collecting, distributing, shared )
};

/** One group that the chip shall hold. */
class LagConfig : public Kiv::Entity {
   KIV_BODY( LagConfig, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Member, member )
 public:
   LagConfig( const Ulnet::IntfId & lag, U32 index );
   /** Without an index; for tools. */
   explicit LagConfig( const Ulnet::IntfId & lag ) : LagConfig( lag, 0 ) {}
   Ulnet::IntfId lagId() const { return lagId_; }
   /** The number by which the chip knows the group. */
   U32 index() const { return index_; }

 private:
   const Ulnet::IntfId lagId_;
   const U32 index_;
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, LagConfig, lag )
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What became of a group or a member. */
enum class Result : U8 {
   pending = 0,   ///< accepted, the chip is not done yet
   success = 1,   ///< the chip holds it
   noLag = 2,     ///< no room for another group
   noMember = 3,  ///< no room for another member in the group
   portTaken = 4, ///< the hardware port is in another group
   failed = 5,    ///< refused by the chip
};
KIV_ENUM( Result, pending, success, noLag, noMember, portTaken, failed )

/** A member as the chip holds it; without `success`, what hinders it. */
class MemberStatus {
   Result result_ = Result::pending;
   bool collecting_ = false;
   bool distributing_ = false;
   bool shared_ = false;
   KIV_VALUE( Hardware::Lag, MemberStatus, result, collecting, distributing, shared )
};

class LagStatus : public Kiv::Entity {
   KIV_BODY( LagStatus, Kiv::Entity )
   KIV_ATTR( U32, index, 0 )
   KIV_ATTR( Result, result, Result::pending )
   KIV_MAP( Ulnet::IntfId, MemberStatus, member )
 public:
   explicit LagStatus( const Ulnet::IntfId & lag );
   Ulnet::IntfId lagId() const { return lagId_; }

 private:
   const Ulnet::IntfId lagId_;
};

/** What one chip, or one slice of it, holds; also what all of them together hold. */
class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, LagStatus, lag )
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** The members that one aggregate has by the configuration of the interfaces. */
class AggregatedLagConfig : public Kiv::Entity {
   KIV_BODY( AggregatedLagConfig, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Interface::LagMode, member )
 public:
   explicit AggregatedLagConfig( const Ulnet::IntfId & lag );
   Ulnet::IntfId lagId() const { return lagId_; }

 private:
   const Ulnet::IntfId lagId_;
};

/** The configuration of all physical interfaces, by aggregate. */
class AggregatedLagConfigDir : public Kiv::Entity {
   KIV_BODY( AggregatedLagConfigDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, AggregatedLagConfig, lagToPort )
 public:
   explicit AggregatedLagConfigDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What the aggregation protocol lets each physical interface do. */
class MemberStatusDir : public Kiv::Entity {
   KIV_BODY( MemberStatusDir, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Interface::LagMember, memberStatus )
 public:
   explicit MemberStatusDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Lag
} // namespace Hardware
