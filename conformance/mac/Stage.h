#pragma once
// A MAC programmer at work on the chip, and what its table should hold.
//
//    add(), remove(), flush() -> programmer -> chip
//                            `-> Wish: when it was written last -> expected(): all of them, in that order

#include <memory>

#include "chip/MacPart.h"
#include "conformance/Trial.h"
#include "conformance/mac/Contracts.h"
#include "platform/Flintlog/Trace.h"
#include "platform/Kiv/Listener.h"

namespace QonConformance::Mac {

using Bridging::EntryType;
using Qon::MacCmdPtr;
using Qon::MacEntryKey;
using QonChip::HeldHosts;
using Type = Qon::IndirectAccessMacCmdType;

String shown( const MacEntryKey & host, Ulnet::IntfId intf );

/** Hears the programmer's trace of answers that nobody waits for. */
class UnaskedAnswers : public Flintlog::Sink {
 public:
   UnaskedAnswers() : former_( Flintlog::sinkIs( this ) ) {}
   ~UnaskedAnswers() override { Flintlog::sinkIs( former_ ); }
   void trace( const char *, U8 level, const String & text ) override;
   String last; ///< the transaction id of the last one

 private:
   Flintlog::Sink * former_;
};

class MacStage {
 public:
   explicit MacStage( Trial & trial );

   /** Hosts from `twins` on share their addresses: four each, one in each VLAN. */
   static constexpr U32 vlans = 4, firstVlan = 10, twins = 1u << 20;
   static MacEntryKey key( U32 host );
   static Bridging::VlanIdOrNone vlanOf( U32 host ) {
      return Bridging::VlanIdOrNone( firstVlan + host % vlans );
   }
   String name( U32 host ) const { return shown( key( host ), wished.at( host ) ); }

   MacCmdPtr add( U32 host, U32 port ) { return addAt( host, t.port( port ) ); }
   MacCmdPtr addAt( U32 host, Ulnet::IntfId intf, EntryType type = EntryType::learnedDynamic );
   MacCmdPtr remove( U32 host );
   /** Flushes what the type names: an interface, a VLAN, a type of entries, or all. */
   MacCmdPtr flush( Type type, Ulnet::IntfId intf = {}, U32 vlan = 0,
                    EntryType entryType = EntryType::learnedDynamic );

   /** Lets everything be answered, and answers that nobody asked for come. What is not answered breaks
       `contract`. */
   void rest( const Contract & contract = answer );
   /** At rest the chip holds what was written, in its order, but for what waits in overflow. */
   void judge( const Contract & contract );
   void contains( const Contract & contract, const HeldHosts & held,
                  const HeldHosts & wanted ) const;
   std::optional< HeldHosts > hosts() { return t.readBack( part.hosts(), "the chip's hosts" ); }
   /** A command that was answered, with success. */
   void succeeded( const Contract & contract, const MacCmdPtr & cmd );
   /** Adds hosts until some of them wait for room. Skips the check if the chip cannot be filled. */
   void fill( const Contract & contract );

   Trial & t;
   QonChip::MacPart & part;
   UnaskedAnswers answers;
   Ptr< Qon::QonMacProgrammer > mac;
   std::map< U32, Ulnet::IntfId > wished; ///< where each host was added last, by host

 private:
   struct Wish {
      MacCmdPtr cmd;
      U64 written = 0; ///< the last time, in the order of all; 0: not yet
      Kiv::Listener< Qon::IndirectAccessMacCmd::transactionIdAttr > listener = {};
   };

   MacCmdPtr address( Type type, U32 host, Ulnet::IntfId intf, EntryType entryType );
   const MacCmdPtr & follow( const MacCmdPtr & cmd );
   HeldHosts expected() const;

   U64 writes_ = 0;
   HeldHosts settled_; // what was expected when it was judged last
   std::vector< std::unique_ptr< Wish > > wishes_;
};

/** 16 hosts, at rest. */
constexpr U32 few = 16;
void addFew( MacStage & stage );

// Checks that look at the table closely; the others stand beside their list.
void checkEarly( Trial & t );
void checkVlans( Trial & t );
void checkMove( Trial & t );
void checkFlush( Trial & t );
void checkOrder( Trial & t );

} // namespace QonConformance::Mac
