#pragma once
// One interface that lists apply to: how many pairs have lists, and which instances wish that no
// traffic passes it.
//
//    AclConfigSm -> AclSm::pairActiveIs( pair ) -> pairActiveIs()     made with the first, gone after
//                                                                     the last
//    AclDataSm -> AclSm::blockIs() -> wantToBlockIs() -> hardware blocks, or no longer
//    hardware -> AclSm::intfBlockedCallback() -> handleAclBlocked()   whoever waits goes on
//
// Invariants
// 1. An instance counts once, however many of its pairs are here.
// 2. It stays while an instance wishes the block, or hardware has not answered.
//
// Ownership: counted by AclSm. Instances take their wishes back before they end.

#include <vector>

#include "platform/Velto/Node.h"
#include "platform/types/AclRule.h"

namespace Qon {

class AclDataSm;

class AclIntfSm : public Velto::Node {
 public:
   /** A list of the type and direction has one pair more here, or one less. */
   void pairActiveIs( Acl::AclType type, Acl::AclDirection direction, bool active );
   bool active( Acl::AclType type, Acl::AclDirection direction ) const {
      return pairs_[U8( type )][U8( direction )] != 0;
   }

   /** The next pass gives a list of the type and direction to it: so it was in the look of that number. */
   void joinsIs( Acl::AclType type, Acl::AclDirection direction, U64 look ) {
      joins_[U8( type )][U8( direction )] = look;
   }
   bool joins( Acl::AclType type, Acl::AclDirection direction, U64 look ) const {
      return joins_[U8( type )][U8( direction )] == look;
   }

   /** The instance wishes the block, or no longer. True if it is the first, or was the last. */
   bool wantToBlockIs( const AclDataSm * instance, bool block );
   U32 wantToBlocks() const { return U32( wantToBlock_.size() ); }
   /** Whether another instance of the same type wishes the block. */
   bool othersWantToBlock( const AclDataSm * instance ) const;

   /** @name What hardware was asked, if it answers later */
   /** @{ */
   void asked() { ++unanswered_; }
   void notAsked() { unanswered_ -= unanswered_ ? 1 : 0; }
   /** It has answered one request. */
   void handleAclBlocked( bool blocked );
   /** It has answered all that it was asked. */
   bool answered() const { return unanswered_ == 0; }
   bool blocked() const { return blocked_; }
   /** @} */

   /** Nobody needs it. */
   bool idle() const { return used_ == 0 && wantToBlock_.empty() && answered(); }

 private:
   U32 pairs_[3][2] = {};
   U32 used_ = 0; // all pairs
   U64 joins_[3][2] = {};
   std::vector< const AclDataSm * > wantToBlock_; // few
   U32 unanswered_ = 0;
   bool blocked_ = false;
};

} // namespace Qon
