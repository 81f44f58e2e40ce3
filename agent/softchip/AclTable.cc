#include "agent/softchip/AclTable.h"

#include <algorithm>

namespace SoftChip {

using Qon::AclCreateError;
using Qon::AclOperation;
using Qon::AclUnitResults;

namespace {

AclCreateError
errorOf( Trouble trouble ) {
   switch ( trouble ) {
   case Trouble::busy:
      return AclCreateError::computationFailed;
   case Trouble::parity:
      return AclCreateError::unsupportedTcamFeature;
   case Trouble::full:
      return AclCreateError::hwResourceFull;
   default:
      return AclCreateError::unsupportedRule;
   }
}

} // namespace

AclUnitResults
AclTable::everywhere( AclCreateError error ) const {
   AclUnitResults results;
   for ( U32 unit = 0; unit < limits_.units; ++unit ) {
      if ( !plan_.unitLost( unitName( unit ) ) ) {
         results.push_back( { unitName( unit ), error } );
      }
   }
   return results;
}

/** Without any there is nobody who could refuse. */
bool
AclTable::anyUnit() const {
   return !everywhere( AclCreateError::success ).empty();
}

/** Whoever has made the instances is told what becomes of them. */
void
AclTable::unitChanged( const String & unit ) {
   const bool lost = plan_.unitLost( unit );
   bool ours = false;
   for ( U32 n = 0; n < limits_.units; ++n ) {
      ours = ours || unitName( n ) == unit;
   }
   std::vector< std::pair< AclOperation, AclUnitResults > > told;
   for ( auto & [place, entry] : entries_ ) {
      if ( !ours || !entry.prepared || place.generation != generation_ ) {
         continue;
      }
      const auto trouble = lost ? std::nullopt : plan_.next( "prepareAcl" );
      if ( trouble ) {
         entry.refused[unit] = errorOf( *trouble );
         ++refusals_;
      } else {
         entry.refused.erase( unit );
      }
      AclUnitResults results = everywhere( AclCreateError::success );
      for ( auto & result : results ) {
         auto refused = entry.refused.find( result.unit );
         result.error = refused == entry.refused.end() ? result.error : refused->second;
      }
      told.push_back( { entry.acl, results } );
   }
   for ( auto & [acl, results] : told ) {
      if ( auto hearer = hook.now() ) {
         hearer->answered( acl, results );
      }
   }
}

std::vector< QonChip::AclUnit >
AclTable::units() const {
   std::vector< QonChip::AclUnit > all;
   for ( U32 unit = 0; unit < limits_.units; ++unit ) {
      const bool lost = plan_.unitLost( unitName( unit ) );
      all.push_back( { unitName( unit ), lost ? 0 : entriesUsed(),
                       plan_.limit( "aclEntries", limits_.entries ), !lost } );
   }
   return all;
}

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
   changed();
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
   const std::size_t wanted = entriesUsed() + entry.acl.rules->rules().size();
   const bool full = anyUnit() && wanted > plan_.limit( "aclEntries", limits_.entries );
   AclUnitResults results =
         everywhere( full ? AclCreateError::hwResourceFull : AclCreateError::success );
   entry.prepared = !full;
   for ( auto & result : results ) {
      if ( const auto trouble = plan_.next( "prepareAcl" ) ) {
         result.error = errorOf( *trouble );
         entry.prepared = false;
      }
   }
   refusals_ += entry.prepared ? 0 : 1;
   return results;
}

AclUnitResults
AclTable::prepare( const AclOperation & acl ) {
   const Place place{ generation_, acl.aclNumber };
   if ( acl.aclNumber == Qon::aclNumberNone || entries_.contains( place ) ) {
      wrong( acl, "prepared under a number that is in use" );
      return everywhere( AclCreateError::unsupportedRule );
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
      changed();
      return;
   }
   completions_.add( [this, place, acl, ticket = hook.ticket()] {
      entries_.erase( place );
      changed();
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
   changed();
}

AclUnitResults
AclTable::commit( const AclOperation & acl ) {
   auto entry = entryOf( acl );
   if ( !entry || !entry->prepared || entry->committed ) {
      wrong( acl, "committed, and not prepared" );
      return everywhere( AclCreateError::unsupportedRule );
   }
   if ( const auto trouble = anyUnit() ? plan_.next( "commitAcl" ) : std::nullopt ) {
      ++refusals_;
      return everywhere( errorOf( *trouble ) );
   }
   entry->committed = true;
   changed();
   return everywhere( AclCreateError::success );
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
   changed();
   if ( auto hearer = hook.of( request.ticket ) ) {
      hearer->blockAnswered( request.intf, request.on );
   }
}

bool
AclTable::blocked( Ulnet::IntfId intf ) const {
   bool blocked = false;
   for ( auto & [generation, held] : blocked_ ) {
      blocked = blocked || held == intf;
   }
   return blocked;
}

std::vector< const AclOperation * >
AclTable::deciders( Acl::AclType type, Acl::AclDirection direction,
                    const Qon::AclIntfUse & use ) const {
   std::vector< const AclOperation * > deciders;
   for ( auto & [place, entry] : entries_ ) {
      if ( entry.committed && entry.acl.type == type && entry.acl.key.direction() == direction &&
           entry.uses.contains( use ) ) {
         deciders.push_back( &entry.acl );
      }
   }
   return deciders;
}

std::vector< AclTable::Asked >
AclTable::asked( Ulnet::IntfId intf, Ulnet::IntfId member, Acl::AclDirection direction,
                 const AclPacket & packet ) const {
   std::vector< Asked > all;
   for ( auto & [place, entry] : entries_ ) {
      if ( !entry.committed || entry.acl.key.direction() != direction ||
           !concerns( entry.acl.type, packet ) || ( !all.empty() && !all.back().permits() ) ) {
         continue;
      }
      const bool here = std::any_of( entry.uses.begin(), entry.uses.end(), [&]( auto & use ) {
         return use.pair().intfId() == intf && use.lagMember() == member &&
                ( use.host().isZero() || use.host() == packet.ethSrc );
      } );
      if ( !here ) {
         continue;
      }
      const auto & rules = entry.acl.rules->rules();
      const auto rule = std::find_if( rules.begin(), rules.end(), [&]( auto & r ) {
         return matches( entry.acl.type, r.rule, packet );
      } );
      if ( rule != rules.end() ) {
         all.push_back( { &entry.acl, &*rule } );
      }
   }
   return all;
}

QonChip::AclDecision
AclTable::lookup( Ulnet::IntfId intf, Ulnet::IntfId member, Acl::AclDirection direction,
                  const AclPacket & packet ) const {
   using QonChip::AclVerdict;
   if ( blocked( intf ) ) {
      return { AclVerdict::blocked, {}, {} };
   }
   const auto all = asked( intf, member, direction, packet );
   if ( all.empty() ) {
      return {};
   }
   const Asked & last = all.back();
   return { last.permits() ? AclVerdict::permit : AclVerdict::deny, *last.acl, *last.rule };
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
