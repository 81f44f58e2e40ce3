#include "simulation/SimHostTable.h"

#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimHostTable::operations() {
   static const Operation table[] = {
         { "add", 30, { Range::key, Range::port }, &SimHostTable::add },
         { "remove", 20, { Range::key }, &SimHostTable::remove },
         { "burst", 3, { Range::key, Range::few, Range::port }, &SimHostTable::burst },
         { "flush", 2, { Range::few, Range::key, Range::port }, &SimHostTable::flush },
         { "quantum", 1, { Range::few }, &SimHostTable::quantumIs },
   };
   return table;
}

SimHostTable::SimHostTable( World & world )
    : SimFeature( world ), keys_( world.size( Range::key ) ) {}

void
SimHostTable::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 60 );
   auto & hosts = shape.hosts;
   hosts.buckets = rng.between( 1, 8 );
   hosts.width = rng.between( 1, 4 );
   hosts.depth = rng.between( 1, 16 );
   hosts.latency = rng.between( 1, 1u << rng.between( 1, 14 ) ) * 1e-6;
}

void
SimHostTable::start() {
   programmer_ = Qon::smIs< SoftChip::SoftMacProgrammer >(
         world_.scheduler.timerWheel(), &world_.chip->of< SoftChip::MacPart >().table() );
   programmer_->initializedIs( true );
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( keys_[i].said ) {
         handIn( i, keys_[i].wanted ? Type::addHost : Type::removeHost, keys_[i].intf );
      }
   }
}

void
SimHostTable::kill( Ending ) {
   stop();
}

void
SimHostTable::held( Holdings & held ) const {
   for ( auto && [key, entry] : world_.chip->of< SoftChip::MacPart >().table().entries() ) {
      if ( !entry.reserved ) {
         held["host " + key.stringValue()] = entry.intf.stringValue();
      }
   }
}

void
SimHostTable::stop() {
   programmer_ = nullptr;
}

Qon::MacEntryKey
SimHostTable::keyOf( U32 i ) const {
   return Qon::MacEntryKey( Bridging::MacVlanPair( Ulnet::EthAddr( 0x020000000000ull + i ),
                                                   Bridging::VlanIdOrNone( world_.vlan( i ) ) ),
                            Qon::MacHwType::macHwKeyBridge );
}

void
SimHostTable::add( const Event & event ) {
   handIn( event[0], Type::addHost, world_.port( event[1] ) );
}

void
SimHostTable::remove( const Event & event ) {
   handIn( event[0], Type::removeHost, world_.port( 0 ) );
}

void
SimHostTable::burst( const Event & event ) {
   for ( U32 n = 0; n < keys_.size() / 2; ++n ) {
      handIn( event[0] + n, ( event[1] + n ) % 3 ? Type::addHost : Type::removeHost,
              world_.port( event[2] + n ) );
   }
}

void
SimHostTable::flush( const Event & event ) {
   for ( Key & key : keys_ ) {
      key.flushed = true;
   }
   programmer_->handleFlushOp( Qon::indirectAccessMacCmdFactory(
         Type( 3 + event[0] % 8 ), keyOf( event[1] % U32( keys_.size() ) ), world_.port( event[2] ),
         Bridging::EntryType::learnedDynamic ) );
}

void
SimHostTable::quantumIs( const Event & event ) {
   programmer_->updateQuantumIs( event[0] == 0 ? 128 : event[0] );
   programmer_->pollReqQuantumIs( event[0] == 0 ? 128 : event[0] );
}

void
SimHostTable::handIn( U32 i, Type type, Ulnet::IntfId intf ) {
   i %= keys_.size();
   bool flushOnItsWay = programmer_->pendingFlushOps() != 0;
   for ( auto walk = programmer_->inProgMacOpIteratorConst(); walk; ++walk ) {
      flushOnItsWay |= !walk.value()->addrOp();
   }
   keys_[i] = { type == Type::addHost, intf, flushOnItsWay, true };
   programmer_->handleAddrOp( Qon::indirectAccessMacCmdFactory(
         type, keyOf( i ), intf, Bridging::EntryType::learnedDynamic ) );
}

SimHostTable::Place
SimHostTable::wantedInChip( const Bridging::MacVlanPair & host ) const {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( keyOf( i ).key() == host ) {
         const Key & key = keys_[i];
         const bool known =
               !programmer_->overflowAddrOpHas( keyOf( i ) ) && ( !key.wanted || !key.flushed );
         return { known, key.wanted ? key.intf : Ulnet::IntfId() };
      }
   }
   return {};
}

String
SimHostTable::checkInvariants() const {
   return programmer_->checkInvariants();
}

bool
SimHostTable::mayStayArmed() const {
   return programmer_->overflowAddrOps() != 0;
}

bool
SimHostTable::working() const {
   return programmer_->pendingMacOps() != 0 || programmer_->inProgMacOps() != 0;
}

String
SimHostTable::checkKey( U32 i ) const {
   const Key & key = keys_[i];
   String name = std::to_string( i ) + ", " + keyOf( i ).stringValue();
   auto held = programmer_->table().entry( keyOf( i ) );
   if ( programmer_->overflowAddrOpHas( keyOf( i ) ) ) {
      return !key.wanted ? "a removal in overflow: " + name
             : programmer_->table().hasRoom( keyOf( i ) )
                   ? "in overflow, though there is room: " + name
                   : "";
   }
   if ( held && ( !key.wanted || held->intf != key.intf ) ) {
      return "entry that is not wanted: " + name;
   }
   return held || !key.wanted || key.flushed ? "" : "entry missing: " + name;
}

String
SimHostTable::checkAtRest() const {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( String wrong = checkKey( i ); !wrong.empty() ) {
         return wrong;
      }
   }
   return programmer_->pendingMacOps() || programmer_->inProgMacOps() ? "work left at rest" : "";
}

void
SimHostTable::tearDown() {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      handIn( i, Type::removeHost, world_.port( 0 ) );
   }
}

String
SimHostTable::checkTornDown() const {
   return programmer_->table().entries().empty() && programmer_->overflowAddrOps() == 0
                ? ""
                : "entries left in the chip";
}

void
SimHostTable::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   lines.push_back( "writeToHw busy 0 0 " + often( rng, 300 ) );
   lines.push_back( "writeToHw parity 0 0 " + often( rng, 100 ) );
}

FeatureKind
simHostTable() {
   return featureKindOf< SimHostTable >( "hosts" );
}

} // namespace Sim
