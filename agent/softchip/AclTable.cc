#include "agent/softchip/AclTable.h"

namespace SoftChip {

using Qon::AclCreateError;
using Qon::AclOperation;
using Qon::AclUnitResults;

namespace {
constexpr char unit[] = "Chip0";
} // namespace

void
AclTable::wrong( const AclOperation & acl, const char * what ) {
   if ( misuse_.empty() ) {
      misuse_ = acl.stringValue() + ": " + what;
   }
}

AclTable::Entry *
AclTable::entryOf( const AclOperation & acl ) {
   auto found = entries_.find( { generation_, acl.aclNumber } );
   return found == entries_.end() || found->second.acl.aclName != acl.aclName ||
                      found->second.acl.key != acl.key || found->second.acl.type != acl.type
                ? nullptr
                : &found->second;
}

void
AclTable::sweep() {
   oldest_ = generation_;
   std::erase_if( entries_,
                  [this]( auto & entry ) { return entry.first.generation != generation_; } );
   std::erase_if( blocked_, [this]( auto & block ) { return block.first != generation_; } );
}

U32
AclTable::entriesUsed() const {
   std::size_t used = 0;
   for ( auto & [place, entry] : entries_ ) {
      used += entry.prepared ? entry.acl.rules->rules().size() : 0;
   }
   return U32( used );
}

AclUnitResults
AclTable::prepareNow( const Place & place ) {
   auto found = entries_.find( place );
   if ( found == entries_.end() ) {
      return {};
   }
   Entry & entry = found->second;
   const auto trouble = plan_.next( "prepareAcl" );
   if ( trouble == Trouble::fail ) {
      return { { unit, AclCreateError::unsupportedRule } };
   }
   const std::size_t wanted = entriesUsed() + entry.acl.rules->rules().size();
   if ( trouble || wanted > plan_.limit( "aclEntries", limits_.entries ) ) {
      return { { unit, AclCreateError::hwResourceFull } };
   }
   entry.prepared = true;
   return { { unit, AclCreateError::success } };
}

AclUnitResults
AclTable::prepare( const AclOperation & acl ) {
   const Place place{ generation_, acl.aclNumber };
   if ( acl.aclNumber == Qon::aclNumberNone || entries_.contains( place ) ) {
      wrong( acl, "prepared under a number that is in use" );
      return { { unit, AclCreateError::unsupportedRule } };
   }
   entries_[place].acl = acl;
   if ( !limits_.async ) {
      return prepareNow( place );
   }
   completions_.add( [this, place, acl, ticket = hook.ticket()] {
      const AclUnitResults results = prepareNow( place );
      if ( auto hearer = hook.of( ticket ) ) {
         hearer->answered( acl, results );
      }
   } );
   return {};
}

void
AclTable::uninstall( const AclOperation & acl ) {
   const Place place{ generation_, acl.aclNumber };
   if ( entries_.contains( place ) && !entryOf( acl ) ) {
      wrong( acl, "uninstalled, and its number is another one's" );
   }
   if ( !limits_.async ) {
      entries_.erase( place );
      return;
   }
   completions_.add( [this, place, acl, ticket = hook.ticket()] {
      entries_.erase( place );
      if ( auto hearer = hook.of( ticket ) ) {
         hearer->answered( acl, {} );
      }
   } );
}

void
AclTable::use( const AclOperation & acl, const Qon::AclIntfUse & where, bool on ) {
   auto entry = entryOf( acl );
   if ( !entry || !entry->prepared ) {
      wrong( acl, "applied to an interface before it is prepared" );
      return;
   }
   if ( on ? !entry->uses.insert( where ).second : !entry->uses.erase( where ) ) {
      wrong( acl, on ? "applied twice to an interface" : "taken off where it is not" );
   }
}

AclUnitResults
AclTable::commit( const AclOperation & acl ) {
   auto entry = entryOf( acl );
   if ( !entry || !entry->prepared || entry->committed ) {
      wrong( acl, "committed, and not prepared" );
      return { { unit, AclCreateError::unsupportedRule } };
   }
   entry->committed = true;
   return { { unit, AclCreateError::success } };
}

void
AclTable::block( Ulnet::IntfId intf, bool on ) {
   requests_.enq( { intf, on, generation_, hook.ticket() } );
   if ( limits_.async || limits_.asyncBlock ) {
      blockCompletions_.add( [this] { blockNext(); } );
   } else {
      blockNext();
   }
}

void
AclTable::blockNext() {
   const Request request = requests_.front();
   requests_.deq();
   if ( request.on && request.generation >= oldest_ ) {
      blocked_.insert( { request.generation, request.intf } );
   } else {
      blocked_.erase( { request.generation, request.intf } );
   }
   if ( auto hearer = hook.of( request.ticket ) ) {
      hearer->blockAnswered( request.intf, request.on );
   }
}

QonChip::HeldAcls
AclTable::held() const {
   QonChip::HeldAcls all;
   for ( auto & [place, entry] : entries_ ) {
      all.acls.push_back( { entry.acl.type, entry.acl.aclName, entry.acl.key, place.number,
                            entry.committed, place.generation != generation_, entry.acl.rules,
                            entry.uses } );
   }
   for ( auto & [generation, intf] : blocked_ ) {
      all.blocked.insert( intf );
   }
   return all;
}

} // namespace SoftChip
