#pragma once
// Mirror sessions of the chip: a table, and the hook class that writes it and says what it holds.

#include "Tables.h"

namespace Chip {

class ChipMirror : public Qon::MirroringSmHelper {
 public:
   using Capability = Mirroring::HwCapability;
   using Status = Mirroring::HwStatus;

   ChipMirror( Tables & tables, Faults faults, Ptr< Capability > capability, Ptr< Status > status )
       : tables_( tables ), faults_( faults ), status_( status ) {
      capability->maxSupportedSessionsIs( Tables::mirrorRoom );
      status_->sessionDelAll();
      for ( auto & [name, session] : tables_.mirrors ) {
         say( name );
      }
      status_->reconciledIs( true );
   }

   bool createMirror( const String & name, int group, int, IntfId port, bool ) override {
      bool room = tables_.mirrors.contains( name ) || tables_.mirrors.size() < Tables::mirrorRoom;
      if ( room ) {
         tables_.mirrors[name].group = group;
         tables_.mirrors[name].targets.insert( port );
         say( name );
      }
      return room;
   }
   bool removeMirror( const String & name, int, int, const Qon::QonPortList & ports ) override {
      auto & targets = tables_.mirrors[name].targets;
      for ( IntfId port : ports ) {
         targets.erase( port );
         if ( faults_.oneDestination ) {
            break;
         }
      }
      goneIfEmpty( name );
      return true;
   }
   bool createGreTunnelMirror( const String & name, int group, int,
                               const Mirroring::TunnelInfo & tunnel,
                               const Tunnel::Resolution & ) override {
      bool room = tables_.mirrors.contains( name ) || tables_.mirrors.size() < Tables::mirrorRoom;
      if ( room ) {
         tables_.mirrors[name].group = group;
         tables_.mirrors[name].tunnelType = tunnel.type();
         say( name );
      }
      return room;
   }
   bool updateGreTunnelMirror( const String &, int, int, const Mirroring::TunnelInfo &,
                               const Tunnel::Resolution & ) override {
      return true; // the table keeps no more than the type
   }
   bool removeGreTunnelMirror( const String & name, int, int ) override {
      tables_.mirrors[name].tunnelType = Mirroring::TunnelType::none;
      goneIfEmpty( name );
      return true;
   }
   bool addSourceToHardware( const String & name, int, int, IntfId intf,
                             Direction direction ) override {
      tables_.mirrors[name].sources[intf] = direction;
      say( name );
      return true;
   }
   bool removeSourceFromHardware( const String & name, int, int, IntfId intf, Direction,
                                  bool ) override {
      tables_.mirrors[name].sources.erase( intf );
      say( name );
      return true;
   }
   bool verifySinglePort( const String & name, int, int, IntfId port ) override {
      return tables_.mirrors.contains( name ) && tables_.mirrors[name].targets.contains( port );
   }
   bool verifyGreTunnelMirror( const String & name, int, int,
                               const Mirroring::TunnelInfo & tunnel ) override {
      return tables_.mirrors.contains( name ) && tables_.mirrors[name].tunnelType == tunnel.type();
   }
   void hwInit() override {}
   U8 maxBiDirSources() override { return 64; }
   U8 maxUniDirSources() override { return 128; }
   void updateCounters() override {}
   bool isValidIntf( const Interface::EthPhyIntfStatus *, IntfId, bool ) override { return true; }
   void setTcamProfileFeature( const String &, const String & ) override {}

 private:
   void goneIfEmpty( const String & name ) {
      auto & session = tables_.mirrors[name];
      if ( session.targets.empty() && session.tunnelType == Mirroring::TunnelType::none ) {
         tables_.mirrors.erase( name );
      }
      say( name );
   }
   /** What the table holds of the session, in the status. */
   void say( const String & name ) {
      auto held = tables_.mirrors.find( name );
      if ( held == tables_.mirrors.end() ) {
         status_->sessionDel( name );
         return;
      }
      auto said = status_->sessionIs( name );
      said->mirrorGroupIs( held->second.group );
      said->tunnelTypeIs( held->second.tunnelType );
      said->targetIntfDelAll();
      for ( IntfId port : held->second.targets ) {
         said->targetIntfIs( port );
      }
      said->srcIntfDelAll();
      for ( auto & [port, direction] : held->second.sources ) {
         said->srcIntfIs( port, direction );
      }
   }

   Tables & tables_;
   Faults faults_;
   Ptr< Status > status_;
};

} // namespace Chip
