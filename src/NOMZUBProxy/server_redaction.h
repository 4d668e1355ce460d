// Passwords hidden from every text that shows a server: the server text itself
// (nomzub::RedactServerUrl) and the messages libpq writes about it.
#ifndef NOM_NOMZUBPROXY_SERVER_REDACTION_H_
#define NOM_NOMZUBPROXY_SERVER_REDACTION_H_

#include <string>

namespace nomzub::proxy {

// A libpq message about url with every secret the URL holds hidden: the URL, where quoted, as
// RedactServerUrl shows it, and each password it carries (also percent-decoded) as "****"
// wherever else it appears. (A password given apart from the URL is never quoted.)
std::string Scrubbed(std::string message, const std::string& url);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_SERVER_REDACTION_H_
