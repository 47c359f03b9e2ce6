// A program outside the billdata tree: makes a database, saves a setting, reads it back.
#include <billdata/ado/ado.h>
#include <billdata/schema/schema.h>

#include <cstdio>
#include <filesystem>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: consumer <new database file>\n";
        return 2;
    }
    std::filesystem::remove(argv[1]);
    try {
        billdata::schema::create_database(argv[1], true);
        auto cn = billdata::ado::Connection::create();
        cn->Open(std::string("Provider=SQLite;Data Source=") + argv[1]);
        auto rs = cn->Execute("select count(*) as FCount from t_Stock");
        long stocks = rs->Fields("FCount").Value().to_int32();
        rs->Close();
        cn->Close();
        if (stocks <= 0) {
            std::cerr << "consumer: the demo database has no stocks\n";
            return 1;
        }
        std::cout << "consumer: " << stocks << " stocks\n";
    } catch (const billdata::ado::ComError& e) {
        std::cerr << "consumer: " << e.number() << " " << e.description() << "\n";
        return 1;
    }
    return 0;
}
