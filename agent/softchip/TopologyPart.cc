#include "agent/softchip/TopologyPart.h"

#include <algorithm>

#include "agent/softchip/Chip.h"

namespace SoftChip {

Velto::Ptr< Qon::TopoHelper >
TopologyPart::makeTopoHelper() {
   return tables_ ? Velto::make< SoftTopoHelper >( *table_ ) : Velto::Ptr< SoftTopoHelper >();
}

namespace {

/** Leaves in the part which BPDUs the chip traps. */
class SoftStpSm : public Qon::StpSm {
 public:
   SoftStpSm( TopologyPart & part, const Velto::Ptr< Qon::QonCommonSmData > & acsd,
              const Velto::Ptr< const Bridging::Topology::Config > & config,
              const Velto::Ptr< Bridging::Topology::Inst::Status > & status,
              const Velto::Ptr< Qon::TopoHelper > & helper )
       : StpSm( acsd, config, status, helper ), part_( part ) {}
   void configureBpduTrapping( bool bpdu, bool perVlan ) override {
      part_.bpduTrappingIs( { bpdu, perVlan } );
   }

 private:
   TopologyPart & part_;
};

/** In the order in which they were there when the reading began. Through the part, whose table is
    another one after a reset. */
class TopologyReader : public QonChip::TopologyReading {
 public:
   explicit TopologyReader( const TopologyPart & part )
       : part_( part ), left_( part.table().topologies() ) {
      std::sort( left_.rbegin(), left_.rend() );
   }
   bool next( String & name, QonChip::HeldTopology & held ) override {
      while ( !left_.empty() ) {
         name = std::exchange( left_.back(), {} );
         left_.pop_back();
         if ( part_.table().has( name ) ) {
            held = at( name );
            return true;
         }
      }
      return false;
   }
   QonChip::HeldTopology at( const String & name ) const override {
      QonChip::HeldTopology held;
      part_.table().forEachPort( name, [&]( IntfId intf, TopoTable::PortState state ) {
         if ( state != TopoTable::PortState::disabled ) { // as a port that was never set
            held.ports[intf] = state;
         }
      } );
      for ( U16 vlan = 1; vlan <= TopoTable::lastVlan; ++vlan ) {
         if ( part_.table().topoOf( vlan ) == name ) {
            held.vlans.insert( vlan );
         }
      }
      return held;
   }

 private:
   const TopologyPart & part_;
   std::vector< String > left_; // the next one is the last
};

} // namespace

Velto::Ptr< Qon::StpSm >
TopologyPart::makeStpSm( const Velto::Ptr< Qon::QonCommonSmData > & acsd,
                         const Velto::Ptr< const Bridging::Topology::Config > & config,
                         const Velto::Ptr< Bridging::Topology::Inst::Status > & status,
                         const Velto::Ptr< Qon::TopoHelper > & helper ) {
   return Qon::smIs< SoftStpSm >( *this, acsd, config, status, helper );
}

std::unique_ptr< QonChip::TopologyReading >
TopologyPart::readTopologies() const {
   return tables_ ? std::make_unique< TopologyReader >( *this ) : nullptr;
}

std::optional< QonChip::HeldTopologies >
TopologyPart::topologies() const {
   auto reader = readTopologies();
   if ( !reader ) {
      return std::nullopt;
   }
   QonChip::HeldTopologies held;
   String name;
   for ( QonChip::HeldTopology topology; reader->next( name, topology ); ) {
      held[name] = topology;
   }
   return held;
}

void
addTopologyPart( Chip & chip ) {
   chip.addPart< TopologyPart >();
}

} // namespace SoftChip
