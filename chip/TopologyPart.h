#pragma once
// Spanning-tree topologies: what a chip brings to program the states of ports.

#include <map>
#include <set>

#include "Qon/include/topology/QonStpSm.h"
#include "chip/Chip.h"
#include "chip/Reading.h"

namespace QonChip {

/** What a chip holds of one topology. */
struct HeldTopology {
   std::set< U16 > vlans;
   std::map< IntfId, Bridging::Topology::PortState > ports;
   bool operator==( const HeldTopology & ) const = default;
};
using HeldTopologies = std::map< String, HeldTopology >;
using TopologyReading = Reading< String, HeldTopology >;

/** A chip without this part keeps forwarding per VLAN, and takes every setting of BPDU trapping. */
class TopologyPart {
 public:
   virtual ~TopologyPart() = default;

   /** The hook object of a chip that has topology tables. Null: the chip keeps forwarding per VLAN,
       and topologies are made of the hooks of its VlanPart. */
   virtual Ptr< Qon::TopoHelper > makeTopoHelper() = 0;
   /** The state machine, if the chip derives from it (it is given what StpSmIs() takes); not
       initialized yet. Null: whoever asks derives one that takes every setting of BPDU trapping. */
   virtual Ptr< Qon::StpSm > makeStpSm( const Ptr< Qon::QonCommonSmData > &,
                                        const Ptr< const Bridging::Topology::Config > &,
                                        const Ptr< Bridging::Topology::Inst::Status > &,
                                        const Ptr< Qon::TopoHelper > & ) {
      return nullptr;
   }

   /** Whether frames of the VLAN pass the port, as far as topologies go; none, the default: the chip
       cannot tell, and whoever asks goes by what it acknowledged. */
   virtual std::optional< bool > forwards( U16, IntfId ) const { return std::nullopt; }
   /** Whether flushTopoPort() takes hosts out of the table that MacPart tells of. A chip whose hosts
       are flushed by the commands of the MAC programmer alone says false. */
   virtual bool flushesHosts() const { return false; }
   /** The chip's topology tables; none if the chip has none or cannot be read back. */
   virtual std::optional< HeldTopologies > topologies() const { return std::nullopt; }
   /** The same, a topology at a time; null if there is nothing to read. */
   virtual std::unique_ptr< TopologyReading > readTopologies() const {
      return wholeReading( topologies() );
   }
};

} // namespace QonChip
