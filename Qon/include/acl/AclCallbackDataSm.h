#pragma once
// What the chip tells of lists whose type is not there: kept until the type comes, and then looked at
// as if it came now. Of one instance the last answer counts.
//
// Ownership: a child of AclSm, while it carries something.

#include <map>

#include "Qon/include/acl/AclTypes.h"
#include "Qon/include/framework/QonBaseSm.h"

namespace Qon {

class AclCallbackDataSm : public QonBaseSm {
 public:
   struct Answer {
      U64 operation = 0;
      AclUnitResults results;
   };
   using Answers = std::map< std::pair< String, AclKey >, Answer >;

   void answerIs( const String & aclName, const AclKey & key, const Answer & answer ) {
      answers_[{ aclName, key }] = answer;
   }
   U32 answers() const { return U32( answers_.size() ); }
   Answers takeAnswers() { return std::exchange( answers_, {} ); }

 private:
   Answers answers_;
};

} // namespace Qon
