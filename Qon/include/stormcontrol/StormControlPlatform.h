#pragma once
// What storm control and a chip say to each other through the state database.
//
//    second generation: PlatformConfig -> the chip -> PlatformStatus, with the version that it holds
//    both: DropSliceDir, written by the chip, a slice each -> StormControlDropSm -> DropStatus
//
// A chip writes the results of a version first, and its versionId last.

#include "Qon/include/framework/QonTypes.h"
#include "Qon/include/stormcontrol/StormControlTypes.h"

namespace Qon::StormControl {

/** What the chip is to hold on one port. */
class PlatformIntfConfig : public Kiv::Entity {
   KIV_BODY( PlatformIntfConfig, Kiv::Entity )
   KIV_ATTR( Ulnet::IntfId, lag ) // whose configuration it is; null: the port's own
   KIV_ATTR( U64, speed, 0 )      // of the port, in kilobits a second; 0 is unknown
   KIV_MAP( LevelType, Threshold, level )
   // Written last: what stands above is whole. Rises with every change, over all interfaces.
   KIV_ATTR( U32, versionId, 0 )
 public:
   explicit PlatformIntfConfig( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

/** What the chip is to hold for one traffic class. */
class PlatformAggregateTcConfig : public Kiv::Entity {
   KIV_BODY( PlatformAggregateTcConfig, Kiv::Entity )
   KIV_ATTR( Threshold, threshold )
   KIV_ATTR( U32, versionId, 0 )
 public:
   explicit PlatformAggregateTcConfig( U8 trafficClass ) : trafficClass_( trafficClass ) {}
   U8 trafficClass() const { return trafficClass_; }

 private:
   const U8 trafficClass_;
};

class PlatformConfig : public Kiv::Entity {
   KIV_BODY( PlatformConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, PlatformIntfConfig, platformIntfConfig )
   KIV_ENTITIES( U8, PlatformAggregateTcConfig, platformAggregateTcConfig )
 public:
   explicit PlatformConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** What became of a version on one port. */
class PlatformIntfStatus : public Kiv::Entity {
   KIV_BODY( PlatformIntfStatus, Kiv::Entity )
   KIV_MAP( LevelType, QonTypes::TableAddStatus, result ) // of each level; none is success
   KIV_ATTR( Drops, drops ) // where no slice reports the port: of a chip that counts by port
   KIV_ATTR( U32, versionId, 0 )
 public:
   explicit PlatformIntfStatus( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

/** What became of a version of one traffic class. */
class PlatformAggregateTcStatus : public Kiv::Entity {
   KIV_BODY( PlatformAggregateTcStatus, Kiv::Entity )
   KIV_ATTR( QonTypes::TableAddStatus, result, QonTypes::TableAddStatus::success )
   KIV_ATTR( U32, versionId, 0 )
 public:
   explicit PlatformAggregateTcStatus( U8 trafficClass ) : trafficClass_( trafficClass ) {}
   U8 trafficClass() const { return trafficClass_; }

 private:
   const U8 trafficClass_;
};

class PlatformStatus : public Kiv::Entity {
   KIV_BODY( PlatformStatus, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, PlatformIntfStatus, platformIntfStatus )
   KIV_ENTITIES( U8, PlatformAggregateTcStatus, platformAggregateTcStatus )
 public:
   explicit PlatformStatus( const String & name ) : Kiv::Entity( name ) {}
};

/** What one slice dropped of one interface. */
class DropIntfStatus : public Kiv::Entity {
   KIV_BODY( DropIntfStatus, Kiv::Entity )
   KIV_ATTR( Drops, drops )
 public:
   explicit DropIntfStatus( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

/** One slice: a chip, or a part of one, that counts for itself. */
class DropSlice : public Kiv::Entity {
   KIV_BODY( DropSlice, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, DropIntfStatus, intfStatus )
 public:
   explicit DropSlice( const String & name ) : Kiv::Entity( name ) {}
};

class DropSliceDir : public Kiv::Entity {
   KIV_BODY( DropSliceDir, Kiv::Entity )
   KIV_ENTITIES( String, DropSlice, slice )
 public:
   explicit DropSliceDir( const String & name ) : Kiv::Entity( name ) {}
};

/** What all slices together dropped of one interface. */
class AllDrops {
   Drops drops_;
   U32 reporters_ = 0; // another number whenever other slices report the interface; 0 is none
   KIV_VALUE( Qon::StormControl, AllDrops, drops, reporters )
};

class DropStatus : public Kiv::Entity {
   KIV_BODY( DropStatus, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, AllDrops, allIntfStatus )
   KIV_ATTR( U32, lastReporters, 0 ) // the number that was given last
 public:
   explicit DropStatus( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Qon::StormControl
