#pragma once
// The hooks of mirror sessions over the table of the chip in software. The table outlives it.

#include "Qon/include/mirroring/MirroringSession.h"
#include "agent/softchip/MirrorTable.h"

namespace SoftChip {

class SoftMirroringHelper : public Qon::MirroringSmHelper, protected MirrorTable::Hook {
 public:
   SoftMirroringHelper( MirrorTable & table, Velto::Ptr< Mirroring::HwCapability > capability,
                        Velto::Ptr< Mirroring::HwStatus > status );
   ~SoftMirroringHelper() override { table_.hook.is( nullptr ); }

   bool createMirror( const String & name, int mirrorGroup, int egressId, IntfId destination,
                      bool update ) override;
   bool removeMirror( const String & name, int mirrorGroup, int egressId,
                      const Qon::QonPortList & destinations ) override;
   bool createGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                               const Mirroring::TunnelInfo & tunnel,
                               const Tunnel::Resolution & resolution ) override;
   bool updateGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                               const Mirroring::TunnelInfo & tunnel,
                               const Tunnel::Resolution & resolution ) override;
   bool removeGreTunnelMirror( const String & name, int mirrorGroup, int egressId ) override;
   bool addSourceToHardware( const String & name, int mirrorGroup, int egressId, IntfId intf,
                             Direction direction ) override;
   bool removeSourceFromHardware( const String & name, int mirrorGroup, int egressId, IntfId intf,
                                  Direction direction, bool sessionGoes ) override;
   bool verifySinglePort( const String & name, int mirrorGroup, int egressId,
                          IntfId destination ) override;
   bool verifyGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                               const Mirroring::TunnelInfo & tunnel ) override;
   void hwInit() override {}
   U8 maxBiDirSources() override { return table_.limits().biDirSources; }
   U8 maxUniDirSources() override { return table_.limits().uniDirSources; }
   void updateCounters() override {} // frames are not counted
   /** A port that is out of service can be neither. */
   bool isValidIntf( const Interface::EthPhyIntfStatus * status, IntfId, bool ) override {
      return !status || status->active();
   }
   void setTcamProfileFeature( const String &, const String & ) override {} // one profile for all

   /** The table's limits have changed. */
   void limitsChanged();

 protected:
   void filterDone( const String & name, IntfId port, bool applied ) override;

 private:
   void reconciled() override { status_->reconciledIs( true ); }
   Mirroring::SessionAttributes attributes( const String & name ) const;
   /** What a source that is just being added shall be filtered by. */
   std::optional< MirrorFilter > filter( const String & name, IntfId intf ) const;
   /** What the table holds of the session, in the status. */
   void publish( const String & name );

   MirrorTable & table_;
   const Velto::Ptr< Mirroring::HwCapability > capability_;
   const Velto::Ptr< Mirroring::HwStatus > status_;
};

} // namespace SoftChip
