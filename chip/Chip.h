#pragma once
// What a chip is to an agent: the one seam between the library's hooks and whatever implements
// them.
//
//    makeMyChip( scheduler ) -> Chip -> part< MacPart >() -> makeProgrammer() -> hook object
//                                 |     part< VlanPart >()      hosts() -> what the chip holds
//                                 `-> pump(), takeDown()
//
// An agent, the conformance kit and the simulation take any chip through it. A chip derives from
// Chip and registers a part for each feature that it serves; a feature finds its part by type, so
// that this header knows none of them. The parts' headers stand beside this one: MacPart.h,
// LagPart.h and so on.
//
// Invariants
// 1. A chip outlives every hook object that its parts have made: an agent that ends and a new one
//    that starts find the chip as it was. What the chip holds therefore stands in the chip or its
//    parts, never in a hook object.
// 2. A part makes at most one hook object of a kind that lives at a time.
// 3. Reading back tells what the chip holds now, not what it was asked for, and changes nothing.
//
// Ownership: whoever makes a chip owns it; the chip owns its parts. The scheduler outlives both.

#include <functional>
#include <memory>
#include <optional>
#include <typeindex>
#include <vector>

#include "platform/Kiv/TaskScheduler.h"
#include "platform/types/FapIdPort.h"
#include "platform/types/Ulnet.h"

namespace QonChip {

using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

class Chip {
 public:
   Chip( const Chip & ) = delete;
   Chip & operator=( const Chip & ) = delete;
   virtual ~Chip() = default;

   /** One word, as recordings and `show version` name it. */
   virtual String name() const = 0;

   /** The part that serves a feature; null if the chip has none, and the feature does without. */
   template< class Part >
   Part * part() const {
      for ( auto & entry : parts_ ) {
         if ( entry.type == typeid( Part ) ) {
            return static_cast< Part * >( entry.part );
         }
      }
      return nullptr;
   }

   /** @name Ports */
   /** @{ */
   /** The ports that checks and simulations may use. By default Ethernet1 to Ethernet64. */
   virtual std::vector< IntfId > ports() const {
      std::vector< IntfId > all;
      for ( U32 n = 1; n <= 64; ++n ) {
         all.push_back( Ulnet::EthIntfId::intfId( n ) );
      }
      return all;
   }
   /** The hardware port of a physical interface. None, the default: whoever asks numbers the ports
       of chip 0 in the order in which they come, from 1. */
   virtual std::optional< Qon::FapIdPort > fapIdPort( IntfId ) const { return std::nullopt; }
   /** @} */

   /** @name Time */
   /** @{ */
   /** Lets a chip work that does not run on the scheduler's clocks, such as one in another process:
       returns when it has had this many seconds for what it was asked. Called on virtual time only,
       before that moves on by as much; never from within a hook. */
   virtual void pump( Kiv::Seconds ) {}
   /** Seconds after which the chip has answered everything that it was asked. */
   virtual Kiv::Seconds answersWithin() const { return 10; }
   /** @} */

   /** Called once, when the last hook object is gone and no other will be made; the tables stay as
       they are. Stops what works for the chip outside of it. */
   virtual void takeDown() {}

 protected:
   Chip() = default;

   /** Registers a part under the interface by which features look for it: add< MacPart >( mac_ ).
      The part is the derived class's, and lives as long as the chip. */
   template< class Part >
   void add( Part & part ) {
      parts_.push_back( { typeid( Part ), &part } );
   }

 private:
   struct Entry {
      std::type_index type;
      void * part;
   };
   std::vector< Entry > parts_;
};

/** Makes a chip whose clocks are the scheduler's. */
using MakeChip = std::function< std::unique_ptr< Chip >( Kiv::TaskScheduler & scheduler ) >;

} // namespace QonChip
