#pragma once
// The host (MAC) table of the chip in software, behind an indirect-access command interface.
//
//    start( command ) -> queue, `depth` commands -> one every `latency` seconds -> the table
//                                   Hook::done( transaction id, index, status ) <-'
//
// Invariants
// 1. The table consists of buckets of `width` places; a key's hash says which bucket. An entry that
//    finds no place in its bucket is refused as full, however empty the rest is. Double-wide
//    entries take two places.
// 2. Commands are done in the order in which they came, each at its time, never inside start().
// 3. A command that finds the queue full is answered as busy when the next one is done. (An answer
//    at once would be followed by the next attempt at once, and so on.)
// 4. A write of a key that is there replaces the entry in its place. A flush takes entries that
//    were learned or configured as dynamic; one by type takes exactly that type.
// 5. Places can be reserved for entries that are not hosts: they are nobody's commands' business, and
//    are in no reading of the hosts.
// 6. A command is answered to the hook object that handed it over, or to nobody; it is done in any
//    case.
//
// Reads the fault plan: hook "writeToHw" for each command that is done, table "hostTable".

#include <deque>

#include "Qon/include/mac/QonMacTypes.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "platform/Kiv/Alarm.h"
#include "platform/types/TableAddStatus.h"
#include "platform/types/Ulnet.h"

namespace SoftChip {

struct HostTableShape {
   U32 buckets = 8192;
   U32 width = 4; ///< places a bucket, at most 32
   U32 depth = 256;
   Kiv::Seconds latency = 20e-6;
};

struct HostCommand {
   U64 id = 0;
   Qon::IndirectAccessMacCmdType type = {};
   Qon::MacEntryKey key;
   Ulnet::IntfId intf;
   Bridging::EntryType entryType = {};
};

struct HostEntry {
   Ulnet::IntfId intf;
   Bridging::EntryType entryType;
   bool multicast;
   U32 index;  ///< its first place: bucket * width + place in the bucket
   U32 places; ///< a bit for each place in the bucket
   bool reserved = false;
};

class HostTable : public Velto::Node {
 public:
   using Status = Qon::MacProgramStatus;
   /** Hears of its own commands; either function may end the hook object. */
   class Hook {
    public:
      virtual void done( U64 id, U32 index, Status status ) = 0;
      /** The queue has become shorter, whosever commands were done. */
      virtual void queueMoved() {}

    protected:
      ~Hook() = default;
   };
   using Entries = Kiv::DenseMap< Qon::MacEntryKey, HostEntry >;

   /** `plan` outlives the table. */
   HostTable( Kiv::TimerWheel * wheel, const HostTableShape & shape, FaultPlan & plan );

   Hearer< Hook > hook;
   void start( const HostCommand & command );

   const HostTableShape & shape() const { return shape_; }
   /** With those that are reserved. */
   const Entries & entries() const { return entries_; }
   /** Null for a key that no host has. */
   const HostEntry * entry( const Qon::MacEntryKey & key ) const {
      auto entry = entries_.find( key );
      return entry && !entry->reserved ? entry : nullptr;
   }
   /** Takes places for an entry of another table. `full`: there are none; `notNow`: a host has the key. */
   QonTypes::TableAddStatus reserve( const Qon::MacEntryKey & key );
   void unreserve( const Qon::MacEntryKey & key );
   /** Whether an entry of that key would find a place. */
   bool hasRoom( const Qon::MacEntryKey & key ) const;
   U32 bucketOf( const Qon::MacEntryKey & key ) const;
   U32 queued() const { return U32( queue_.size() ); }

 private:
   using Ticket = Hearer< Hook >::Ticket;
   struct Queued {
      HostCommand command;
      Kiv::Seconds due;
      Ticket ticket;
   };
   struct Refused {
      U64 id;
      Ticket ticket;
   };

   void handleTimeout();
   void work( const Queued & queued );
   void answer( Ticket ticket, U64 id, U32 index, Status status );
   Status execute( const HostCommand & command, U32 & index );
   Status add( const HostCommand & command, U32 & index );
   void remove( const Qon::MacEntryKey & key );
   void flush( const HostCommand & command );
   U32 freePlaces( const Qon::MacEntryKey & key ) const;

   const HostTableShape shape_;
   FaultPlan & plan_;
   std::vector< U32 > taken_; // a bit for each place of a bucket
   Entries entries_;
   std::deque< Queued > queue_;
   std::vector< Refused > refused_; // to be answered as busy
   Kiv::Alarm alarm_;
};

} // namespace SoftChip
