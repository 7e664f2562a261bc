// A web server of the test's own: nginx in a folder of its own.
#pragma once

#include <cstdlib>
#include <string>

#include "support/loopback.h"
#include "support/temporary_folder.h"

/// Serves what is in www/ of its folder, beside the locations that it is given.
class NginxServer {
public:
    enum class Encryption { none, also };

    explicit NginxServer(const std::string& locations, Encryption encryption = Encryption::none) {
        folder_.write("www/index.html", "hello");
        std::string listening = "listen 127.0.0.1:" + plain_.number() + ";\n";
        if (encryption == Encryption::also) {
            make_certificates();
            listening += "listen 127.0.0.1:" + encrypted_.number() +
                         " ssl;\nssl_certificate server.pem;\nssl_certificate_key server.key;\n";
        }
        // Its workers have to get into the folder.
        const std::string user = geteuid() == 0 ? "user root;\n" : "";
        folder_.write("nginx.conf",
                      user +
                          "daemon off;\npid nginx.pid;\nevents { worker_connections 512; }\n"
                          "http {\naccess_log off;\nclient_max_body_size "
                          "0;\nkeepalive_requests 1000000;\n"
                          "client_body_temp_path body;\nproxy_temp_path proxy;\nfastcgi_temp_path fastcgi;\n"
                          "uwsgi_temp_path uwsgi;\nscgi_temp_path scgi;\nserver {\nroot www;\n" +
                          listening + locations + "\n}\n}\n");
        // It takes the listening sockets over by their numbers, as it does when it is replaced by a new version: what
        // connects before it runs waits.
        process_.start(
            {"nginx", "-p", folder_.path(), "-c", folder_ / "nginx.conf", "-e", folder_ / "error.log"},
            "NGINX=" + std::to_string(plain_.socket_number()) + ";" + std::to_string(encrypted_.socket_number()) + ";");
        plain_.close_socket();
        encrypted_.close_socket();
    }

    std::string url(const std::string& path) const { return "http://127.0.0.1:" + plain_.number() + path; }
    std::string encrypted_url(const std::string& host, const std::string& path) const {
        return "https://" + host + ":" + encrypted_.number() + path;
    }
    const TemporaryFolder& folder() const { return folder_; }
    void stop() { process_.stop(); }

private:
    /// ca.pem signs server.pem, which is for the name localhost; other.pem is another authority.
    void make_certificates() const {
        folder_.write("names", "subjectAltName=DNS:localhost\n");
        const std::string key = " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
        const std::string script =
            "cd '" + folder_.path() + "' && exec 2>openssl.log && " + "openssl req -x509 -days 2 -subj /CN=Authority" +
            key + "-keyout ca.key -out ca.pem && " + "openssl req -x509 -days 2 -subj /CN=Other" + key +
            "-keyout other.key -out other.pem && " + "openssl req -subj /CN=localhost" + key +
            "-keyout server.key -out server.csr && " +
            "openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile names " +
            "-out server.pem";
        if (std::system(script.c_str()) != 0) std::abort();
    }

    TemporaryFolder folder_;
    LoopbackPort plain_{/*flags*/ 0}, encrypted_{/*flags*/ 0};
    ServerProcess process_;
};
