#pragma once
// The chip: finite tables, the hook classes between them and the library, and the parts that make
// these.
//
//    library -> ChipMac, ChipTopo, ChipVlan, ChipLag, ChipAsync, ChipAdjacency
//                                                               -> (a little later) -> Tables
//                                                               -> done, to the library
//            -> ChipStorm, ChipVlanMapping, ChipMirror, ChipAcl, ChipMulticast, ChipTapAgg
//                                                               -> at once -> Tables
//    SmallChip: Tables, and a part for each feature, which reads them back
//
// Each hook class stands in a header of its own, and can be told to have one fault, as a developer
// might make it. The tables stand in the chip, which outlives the hook objects: they point to it
// without owning it.

#include "Acl.h"
#include "Adjacency.h"
#include "Async.h"
#include "Lag.h"
#include "Mac.h"
#include "Mirror.h"
#include "Multicast.h"
#include "Storm.h"
#include "TapAgg.h"
#include "Topology.h"
#include "Vlan.h"
#include "VlanMapping.h"

namespace Chip {

/** The chip as an agent and the kit see it; made of these hook classes or of others. */
template< class Mac = ChipMac, class Topo = ChipTopo, class Vlan = ChipVlan, class Lag = ChipLag,
          class Mirror = ChipMirror, class Acl = ChipAcl >
class SmallChip : public QonChip::Chip,
                  QonChip::MacPart,
                  QonChip::TopologyPart,
                  QonChip::VlanPart,
                  QonChip::LagPart,
                  QonChip::StormControlPart,
                  QonChip::VlanMappingPart,
                  QonChip::MirrorPart,
                  QonChip::MulticastPart,
                  QonChip::TapAggPart,
                  QonChip::AclPart,
                  QonChip::AdjacencyPart,
                  QonChip::AsyncPart {
 public:
   explicit SmallChip( Kiv::TaskScheduler & scheduler, Faults faults = {} )
       : faults_( faults ), wheel_( scheduler.timerWheel() ), engine_( tables_, wheel_ ) {
      add< QonChip::MacPart >( *this );
      add< QonChip::TopologyPart >( *this );
      add< QonChip::VlanPart >( *this );
      add< QonChip::VlanMappingPart >( *this );
      add< QonChip::LagPart >( *this );
      add< QonChip::StormControlPart >( *this );
      add< QonChip::MirrorPart >( *this );
      add< QonChip::MulticastPart >( *this );
      add< QonChip::TapAggPart >( *this );
      add< QonChip::AclPart >( *this );
      add< QonChip::AdjacencyPart >( *this );
      add< QonChip::AsyncPart >( *this );
   }
   String name() const override { return "small"; }

 private:
   Ptr< Qon::QonMacProgrammer > makeProgrammer() override {
      return Velto::make< Mac >( tables_, faults_, wheel_ );
   }
   std::optional< QonChip::HeldHosts > hosts() const override { return tables_.hosts; }
   U32 hostsToFill() const override { return 2 * Tables::hostRoom; }

   Ptr< Qon::TopoHelper > makeTopoHelper() override {
      return Velto::make< Topo >( tables_, faults_, wheel_ );
   }
   std::optional< QonChip::HeldTopologies > topologies() const override {
      return tables_.topologies;
   }
   bool flushesHosts() const override { return true; }

   Ptr< Qon::VlanHelper > makeVlanHelper( const Ptr< Qon::QonCommonSmData > & acsd ) override {
      return Velto::make< Vlan >( tables_, faults_, acsd.ptr(), wheel_ );
   }
   std::optional< QonChip::HeldVlans > vlans() const override { return tables_.vlans; }
   std::optional< std::map< U16, U32 > > fids() const override { return tables_.fids; }

   Ptr< Qon::VlanMappingSm >
   makeVlanMappingSm( Qon::VlanMappingSm::Inputs inputs,
                      const QonChip::VlanMappingPart::Statuses & ) override {
      return Qon::smIs< ChipVlanMapping >( std::move( inputs ), tables_, faults_ );
   }
   std::optional< QonChip::HeldTranslations > translations() const override {
      return tables_.translations;
   }

   Ptr< Velto::Node > makeProgrammer( const Ptr< const Hardware::Lag::Config > & config,
                                      const Ptr< Hardware::Lag::Status > & status ) override {
      return Velto::make< Lag >( tables_, faults_, config, status, wheel_ );
   }
   std::optional< QonChip::HeldGroups > groups() const override { return tables_.lags; }

   Ptr< Qon::StormControlSmHelper >
   makeStormControlHelper( const Ptr< Qon::QonCommonSmData > & ) override {
      return Velto::make< ChipStorm >( tables_, faults_ );
   }
   Ptr< Qon::QonStormControlSmHelperV2 >
   makeStormControlHelperV2( const Ptr< const Qon::StormControl::PlatformConfig > & config,
                             const Ptr< Qon::StormControl::PlatformStatus > & status ) override {
      return Velto::make< ChipStormV2 >( tables_, config, status, wheel_ );
   }
   /** It counts nothing. */
   Ptr< Velto::Node >
   makeDropCounter( const Ptr< Qon::StormControl::DropSliceDir > & slices ) override {
      return slices;
   }
   std::optional< QonChip::HeldStormControl > stormControl() const override {
      return tables_.storm;
   }
   Ptr< Qon::MirroringSmHelper >
   makeMirroringHelper( const Ptr< Mirroring::HwCapability > & capability,
                        const Ptr< Mirroring::HwStatus > & status ) override {
      return Velto::make< Mirror >( tables_, faults_, capability, status );
   }
   std::optional< QonChip::HeldMirrors > mirrors() const override { return tables_.mirrors; }
   Ptr< Qon::TapAggHelper > makeTapAggHelper() override {
      return Velto::make< ChipTapAgg >( tables_, faults_ );
   }
   std::optional< QonChip::HeldTapAgg > tapAgg() const override { return tables_.tapAgg; }

   Ptr< Qon::MulticastDataFactory > makeMulticastDataFactory() override {
      return Velto::make< ChipMulticast >( tables_, faults_ );
   }
   Ptr< Qon::MulticastCopyUpdater > makeMulticastCopyUpdater(
         const Ptr< const Bridging::Multicast::CopyRequestConfig > & config ) override {
      return Qon::smIs< ChipCopies >( tables_, config );
   }
   std::optional< QonChip::HeldMulticast > multicast() const override { return tables_.multicast; }
   U32 multicastGroupsToFill() const override { return U32( Tables::multicastRoom ); }

   Ptr< QonHelper::AclHelper > makeAclHelper() override {
      return Velto::make< Acl >( tables_, faults_ );
   }
   std::optional< QonChip::HeldAcls > acls() const override { return tables_.acls; }

   Ptr< QonChip::AdjacencyHelper > makeAdjacencyHelper() override {
      return Velto::make< ChipAdjacency >( tables_, faults_, wheel_ );
   }
   std::optional< QonChip::HeldAdjacencies > adjacencies() const override {
      QonChip::HeldAdjacencies all = tables_.adjacencies;
      for ( auto & [fec, place] : all.fecs ) {
         ++all.adjacencies[place].fecs;
      }
      return all;
   }

   Ptr< Qon::QonAsyncBaseHelper > makeAsyncHelper() override {
      return Velto::make< ChipAsyncHelper >();
   }
   Ptr< Qon::QonAsyncBaseSm > makeAsyncSm( const Ptr< Qon::QonCommonSmData > & acsd,
                                           const Ptr< Qon::QonAsyncBaseHelper > & helper,
                                           QonChip::AsyncHeard heard ) override {
      return Qon::smIs< ChipAsync >( acsd, static_cast< ChipAsyncHelper * >( helper.ptr() ),
                                     engine_, faults_, std::move( heard ) );
   }
   void asyncRequest( Qon::QonAsyncBaseSm & sm, const String & key, U32 value ) override {
      static_cast< ChipAsync & >( sm ).request( key, value );
   }
   std::optional< QonChip::HeldEntries > asyncEntries() const override { return tables_.entries; }
   bool asyncAnswersAre( AsyncAnswers answers ) override {
      engine_.answersAre( answers );
      return true;
   }
   std::vector< AsyncOperation > asyncOperations() const override { return engine_.operations(); }
   void asyncAnswer( U32 place, const String & error ) override { engine_.answer( place, error ); }

   Faults faults_;
   Kiv::TimerWheel * wheel_;
   Tables tables_;
   ChipEngine engine_;
};

} // namespace Chip
